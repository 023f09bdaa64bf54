// Looking back, whoever has recorded it: what a page asks, and this host's recordings answer, or those of
// several hosts. Whose right it is to see a camera, the page asks.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/events/event.h"
#include "host/recordings/matroska_writer.h"
#include "host/recordings/recorded.h"

namespace host {

// What a camera has on another host that cannot be asked now: it may come back.
struct AwayRecordings {
    std::string host;
    TimeSpan span;
    friend bool operator==(const AwayRecordings&, const AwayRecordings&) = default;
};

struct RecordedPicture {
    // With the number of its file a picture has one place, also where the wall clock showed a time twice.
    std::int64_t file = 0;
    UnixMs time = 0;
    int width = 0; // of its file
    int height = 0;
    std::string jpeg; // byte for byte what watchers got
};

// The pictures of a camera whose time is in a span, in the order in which they were recorded. One thread at a
// time.
class RecordedRange {
public:
    class Pictures {
    public:
        Pictures() = default;
        Pictures(const Pictures&) = delete;
        Pictures& operator=(const Pictures&) = delete;
        virtual ~Pictures() = default;
        virtual std::optional<RecordedPicture> NextFrom(UnixMs time) = 0;
        [[nodiscard]] virtual UnixMs EndBefore() const noexcept = 0;
    };
    explicit RecordedRange(std::unique_ptr<Pictures> pictures, std::vector<AwayRecordings> away = {})
        : m_pictures(std::move(pictures)), m_away(std::move(away)) {}

    // Nothing at the end. A file that is gone meanwhile, or damaged, is passed over. Throws RecordingError
    // where pictures are another host's, which does not answer any more.
    std::optional<RecordedPicture> Next() { return m_pictures->NextFrom(0); }
    // Passes over the pictures before that time, without reading them where they are many: of the file that
    // is being read alone. Where it has no later one, the first of the next file is the next.
    std::optional<RecordedPicture> NextFrom(UnixMs time) { return m_pictures->NextFrom(time); }
    // When the last picture was taken of the file before that of the newest picture.
    [[nodiscard]] UnixMs EndBefore() const noexcept { return m_pictures->EndBefore(); }
    // What is not among the pictures.
    [[nodiscard]] const std::vector<AwayRecordings>& Away() const noexcept { return m_away; }

private:
    std::unique_ptr<Pictures> m_pictures;
    std::vector<AwayRecordings> m_away;
};

// A recorded file as it lies on a disk. One thread at a time.
class StoredFile {
public:
    StoredFile() = default;
    StoredFile(const StoredFile&) = delete;
    StoredFile& operator=(const StoredFile&) = delete;
    virtual ~StoredFile() = default;

    std::string name;       // without its folder
    std::uint64_t size = 0; // of one that is being written: when it was opened
    std::string version;    // another one when its bytes have changed
    // The bytes from a place on, `most` at the most; none at the end, or where they cannot be had.
    [[nodiscard]] virtual std::string Read(std::uint64_t at, std::size_t most) = 0;
};

struct ListedCamera {
    RecordedCamera camera;
    TimeSpan extent; // from the first picture to the newest one
};

// What there is of a camera in a span.
struct RecordedTimes {
    std::optional<TimeSpan> extent{}; // of all that there is of the camera; nothing: nothing
    std::vector<TimeSpan> spans{};    // with pictures, in the order in which they begin
    std::vector<TimeSpan> motion{};
    std::vector<RecordedFile> files{};
    std::vector<Event> events{}; // the newest first
    std::vector<AwayRecordings> away{};
};

// Any thread, several at a time. Calls may wait for a disk, or for some seconds for another host.
class RecordingSource {
public:
    RecordingSource() = default;
    RecordingSource(const RecordingSource&) = delete;
    RecordingSource& operator=(const RecordingSource&) = delete;
    virtual ~RecordingSource() = default;

    // Those that are in the settings, and (with `removed`) those that are not any more. For 0 no camera has
    // that id. Of those with one name the one in the settings is the last.
    [[nodiscard]] virtual std::vector<RecordedCamera> Cameras() const = 0;
    // Those that have recordings, in that order.
    [[nodiscard]] virtual std::vector<ListedCamera> Listed() const = 0;
    // From the first picture to the newest one; nothing where nothing was recorded.
    [[nodiscard]] virtual std::optional<TimeSpan> Extent(std::int64_t camera) const = 0;
    // What is less than `gap` apart is one span. Of events also what kept all cameras from being recorded,
    // with `ofAll`.
    [[nodiscard]] virtual RecordedTimes Times(std::int64_t camera, TimeSpan span, UnixMs gap,
                                              bool ofAll) const = 0;
    // With `step` 0 the newest picture at that time or before it within a recording, of several recordings of
    // that time the later one; where there is none, the nearest one. With 1 the first one behind that, with
    // -1 the last one before it, in the order in which they were recorded; `file` is the number that the
    // picture at that time came with, or 0. Nothing where nothing was recorded.
    [[nodiscard]] virtual std::optional<RecordedPicture> Picture(std::int64_t camera, UnixMs time, int step,
                                                                 std::int64_t file) const = 0;
    [[nodiscard]] virtual RecordedRange Range(std::int64_t camera, TimeSpan span) const = 0;
    // Null where there is none of that key.
    [[nodiscard]] virtual std::unique_ptr<StoredFile> Open(FileKey key) const = 0;

    // Keeps the files that touch a span from being removed, or lets them go: how many there are, and of how
    // many it could.
    struct Kept {
        std::size_t files = 0;
        std::size_t changed = 0;
    };
    virtual Kept KeepFiles(std::int64_t camera, TimeSpan span, bool keep) = 0;
};

struct Film {
    std::string title{};
    // 1: as it was, with its pauses. More: a time lapse of 25 pictures a second at most, without the time
    // between files.
    double speed = 1;
    // Told now and then which time has been reached; false ends it.
    std::function<bool(UnixMs)> progress{};
};
// Writes one Matroska file. False when it was ended, or there is no picture. Throws RecordingError when the
// sink does not take it, or what is another host's cannot be had any more.
bool WriteFilm(RecordedRange range, const Film& film, ByteSink& sink);

} // namespace host
