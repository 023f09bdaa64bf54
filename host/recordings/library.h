// All that was recorded: which cameras and files there are, what is to go, and the index of it, which has
// what happened meanwhile as well.
//
// A thread of its own keeps index and retention; nobody else waits for either. The index follows the folder:
// after a crash, or where it was lost or damaged, it is made again from what the folder holds, while
// recording goes on.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "host/base/wait.h"
#include "host/events/event_log.h"
#include "host/recordings/adoption.h"
#include "host/recordings/disk.h"
#include "host/recordings/folder.h"
#include "host/recordings/index.h"
#include "host/recordings/recorded.h"
#include "host/recordings/retention.h"

namespace host {

// What people should know of.
struct RecordingNews {
    enum class Kind {
        Paused,        // nothing is recorded; the text says why
        Resumed,       // it is again
        Dropped,       // pictures of a camera came faster than they could be written
        IndexLost,     // it was damaged, and is made again
        IndexLocked,   // another program has it: what it shows is old
        IndexUnlocked, // and has no more
        ClockSetBack   // there will be recordings of that time twice
    };
    Kind kind = Kind::Paused;
    std::string camera; // empty: all of them
    std::string text;   // one line
};
// Any thread of this room; returns at once.
using TellRecordingNews = std::function<void(const RecordingNews&)>;

struct LibraryParts {
    std::string folder;
    Disk& disk;
    TellRecordingNews tell;
    EventLog* events = nullptr;    // what happened to cameras, for looking back; null: nobody tells
    std::function<UnixMs()> now{}; // the wall clock, for what has become too old
    // How long an index that another program has is waited for at a time, milliseconds.
    int indexWait = 2000;
};

class Library {
public:
    explicit Library(LibraryParts parts);
    Library(const Library&) = delete;
    Library& operator=(const Library&) = delete;
    // What came before is in the index then, unless that cannot be had.
    ~Library();

    // All below: any thread.

    // Nothing is removed before the first ones.
    void SetLimits(RetentionLimits limits);
    // The cameras of the settings. Those that are not among them any more are removed ones from now on.
    void SetPresent(const std::vector<std::string>& names);
    [[nodiscard]] std::vector<RecordedCamera> Cameras() const;
    // The camera of that name that is in the settings; 0: nothing was recorded of it.
    [[nodiscard]] std::int64_t IdOf(std::string_view name) const;
    [[nodiscard]] std::string PathOf(const RecordedFile& file) const { return m_folder.PathOf(file); }

    // Why nothing may be recorded now; nothing when it may.
    [[nodiscard]] std::optional<std::string> Full() const;
    // Names a camera's next file and makes its place. Throws RecordingError.
    RecordedFile Begin(const std::string& camera, UnixMs begin);
    // What has become of a file since. It stands in the index before the next look at what is too much.
    void Put(RecordedFile file);
    // A file that was begun and is gone again.
    void Forget(FileKey key);
    // Who ends files that are being written, on the library's thread; returns at once. Null: nobody any more,
    // and none is being told.
    void OnEndWanted(std::function<void(FileKey)> end);

    // Keeps a file from being removed, or lets it go. False when there is no such file, or it cannot be done.
    bool Keep(FileKey key, bool keep);

    // Asks the index. What cannot be had from it, because it is locked, damaged or being made, is the value
    // that `Answer` has by itself.
    template <typename Answer>
    Answer Ask(const std::function<Answer(Index&)>& question) const;

    // Returns when the index has all of what was put, and what is too much is gone; for tests.
    void Settle();

private:
    using Pending = std::map<FileKey, std::optional<RecordedFile>>; // nothing: to be removed

    // The thread's own, in the order of their use.
    void Work();
    bool Round();
    bool OpenFolder();
    void OpenIndex();
    void Apply();
    void Adopt();
    void Retain();
    void FollowEvents();
    void Remove(const RecordedFile& file);
    void RemoveCamerasWithoutFiles();
    void RemoveOldestWithoutIndex();
    bool DropIndex(bool damaged);
    void SetLocked(bool locked);
    void SetFull(std::string reason);
    [[nodiscard]] bool IsWriting(FileKey key) const;
    [[nodiscard]] std::string IndexPath() const { return m_folder.Path() + "/index.sqlite"; }

    void AskIndex(const std::function<void(Index&)>& question) const;

    const LibraryParts m_parts;
    RecordingsFolder m_folder;

    // Of the library's thread alone.
    std::unique_ptr<Index> m_index;
    Adoption m_adoption;
    bool m_locked = false;

    mutable std::mutex m_readMutex; // for those who ask; goes before m_mutex
    mutable std::unique_ptr<Index> m_reader;

    mutable std::mutex m_mutex; // everything below
    std::condition_variable m_wake;
    std::condition_variable m_settled;
    bool m_open = false;            // the folder
    mutable bool m_suspect = false; // who reads the index found it damaged
    mutable bool m_stale = false;   // the reader's index is not this one any more
    std::string m_full;             // empty: it is not
    std::vector<RecordedCamera> m_cameras;
    std::map<std::int64_t, std::int64_t> m_lastNumbers;
    std::int64_t m_lastId = 0;
    std::map<FileKey, RecordedFile> m_writing;
    std::set<FileKey> m_begun; // since the folder was looked through
    Pending m_pending;
    std::optional<RetentionLimits> m_limits; // nothing goes before they are known
    std::uint64_t m_asked = 0;               // rounds that somebody waits for, and those that were done
    std::uint64_t m_done = 0;
    bool m_changed = false; // what a look should not wait for, since the last round
    bool m_stop = false;

    std::mutex m_endMutex;
    std::function<void(FileKey)> m_end;

    std::thread m_thread;
};

template <typename Answer>
Answer Library::Ask(const std::function<Answer(Index&)>& question) const {
    Answer answer{};
    AskIndex([&](Index& index) { answer = question(index); });
    return answer;
}

} // namespace host
