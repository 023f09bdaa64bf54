// What is recorded and when, in one SQLite database beside the recordings. All that it holds can be had from
// the files, their ".keep" and the journals of events, so it may be lost; it is asked because that is quick.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/events/event.h"
#include "host/recordings/recorded.h"

struct sqlite3;

namespace host {

struct IndexError : std::runtime_error {
    enum class Kind {
        Damaged,    // it is no database, or not one of ours: to be thrown away and made anew
        Outdated,   // one of ours, of another version: the same, and nobody need be told
        Locked,     // another program has it: later
        NotWritable // a full or read-only disk, or a folder that is not ours: later
    };
    IndexError(Kind what, const std::string& text) : std::runtime_error(text), kind(what) {}
    Kind kind;
};

// All operations throw IndexError. One thread at a time; several objects, of several processes, may have one
// database at a time, and who reads waits for nobody who writes.
class Index {
public:
    enum class Access { Write, Read };
    // Makes the database where it is missing and may be written. What is locked by another program is waited
    // for, `wait` milliseconds at most.
    Index(const std::string& path, Access access, int wait);
    Index(const Index&) = delete;
    Index& operator=(const Index&) = delete;
    ~Index();

    // What is done in between happens whole or not at all: unless End is reached, not.
    class Change {
    public:
        explicit Change(Index& index);
        Change(const Change&) = delete;
        Change& operator=(const Change&) = delete;
        ~Change();
        void End();

    private:
        Index& m_index;
        bool m_ended = false;
    };

    void Put(const RecordedFile& file);
    void Remove(FileKey key);
    [[nodiscard]] std::optional<RecordedFile> Find(FileKey key);
    // In the order of their numbers.
    [[nodiscard]] std::vector<RecordedFile> FilesOf(std::int64_t camera);
    // Those with a picture in that time, or around it, in the order in which they began.
    [[nodiscard]] std::vector<RecordedFile> FilesOf(std::int64_t camera, TimeSpan span);
    // The camera's next file in the order of numbers, or the one before.
    [[nodiscard]] std::optional<RecordedFile> After(FileKey key);
    [[nodiscard]] std::optional<RecordedFile> Before(FileKey key);
    // The one that ended last before that time, and the one that begins first at it or after.
    [[nodiscard]] std::optional<RecordedFile> LastBefore(std::int64_t camera, UnixMs time);
    [[nodiscard]] std::optional<RecordedFile> FirstFrom(std::int64_t camera, UnixMs time);
    // The days, counted from 1970, in which a file begins or ends, by a clock that is so much ahead of UTC.
    [[nodiscard]] std::vector<std::int64_t> DaysOf(std::int64_t camera, std::int64_t aheadMs);
    // Bytes of a camera's files, and of those that are kept alone.
    struct Bytes {
        std::uint64_t all = 0;
        std::uint64_t kept = 0;
    };
    [[nodiscard]] Bytes BytesOf(std::int64_t camera);
    [[nodiscard]] Bytes BytesOfAll();
    // What was begun first of what may be removed: what is not kept; written files as well with `open`. Of
    // all cameras with 0.
    [[nodiscard]] std::optional<RecordedFile> Oldest(std::int64_t camera, bool open);
    // When the first picture of all was taken that is there.
    [[nodiscard]] std::optional<UnixMs> Begin();

    // What happened to cameras, by their names, as the journal of events has it: in the order of numbers.
    void PutEvent(const Event& event);
    // The number up to which events were put; 0 in a new index.
    [[nodiscard]] std::uint64_t LastEvent();
    void SetLastEvent(std::uint64_t number);
    // When something moved. Of a movement that has not ended the begin alone.
    [[nodiscard]] std::vector<TimeSpan> MotionOf(std::string_view camera, TimeSpan span);
    // All but movement, the newest first, `most` at the most; with `ofAll` also what is of no one camera.
    [[nodiscard]] std::vector<Event> EventsOf(std::string_view camera, TimeSpan span, bool ofAll,
                                              std::size_t most);
    void RemoveEventsBefore(UnixMs time);
    void RemoveEvents();

private:
    class Statement;
    void Run(const char* text);
    template <typename... Values>
    void Do(const char* text, const Values&... values);
    template <typename... Values>
    std::vector<RecordedFile> Files(const char* text, const Values&... values);
    template <typename... Values>
    std::optional<RecordedFile> File(const char* text, const Values&... values);

    struct CloseDatabase {
        void operator()(sqlite3* database) const noexcept;
    };
    std::unique_ptr<sqlite3, CloseDatabase> m_database;
};

} // namespace host
