#include "host/recordings/library.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <utility>

#include "host/log/console.h"

namespace host {
namespace {

using namespace std::chrono_literals;

// How often it is looked what is too much, and what could not be done is tried again.
constexpr std::chrono::milliseconds kRound = 5s;
// So many files are removed between two looks at what else is to be done. A disk is told of all at the end
// alone.
constexpr int kMostRemovedAtOnce = 1000;
// How long the end of the host waits for an index that cannot be had.
constexpr std::chrono::milliseconds kApplyWithin = 3s;
// What a change of the index needs at least.
constexpr std::uint64_t kRoomForIndex = 1024 * 1024;
// So many events are taken into the index at once.
constexpr std::size_t kEventsAtOnce = 20'000;
// Events stay for so long also where recordings do not.
constexpr int kLeastEventDays = 7;

UnixMs WallClock() {
    return std::chrono::duration_cast<std::chrono::milliseconds>(
               std::chrono::system_clock::now().time_since_epoch())
        .count();
}

LibraryParts Completed(LibraryParts parts) {
    if (!parts.now)
        parts.now = &WallClock;
    if (!parts.tell)
        parts.tell = [](const RecordingNews&) {};
    return parts;
}

} // namespace

Library::Library(LibraryParts parts)
    : m_parts(Completed(std::move(parts))), m_folder(m_parts.folder, m_parts.disk),
      m_adoption(m_folder, m_parts.disk) {
    (void)OpenFolder();
    m_thread = std::thread([this] { Work(); });
}

Library::~Library() {
    {
        const std::lock_guard guard(m_mutex);
        m_stop = true;
    }
    m_wake.notify_all();
    m_thread.join();
}

void Library::SetLimits(RetentionLimits limits) {
    const std::lock_guard guard(m_mutex);
    m_limits = std::move(limits);
    m_changed = true;
    m_wake.notify_all();
}

void Library::SetPresent(const std::vector<std::string>& names) {
    std::vector<RecordedCamera> gone;
    {
        const std::lock_guard guard(m_mutex);
        for (RecordedCamera& camera : m_cameras) {
            if (camera.removed != 0 || std::ranges::find(names, camera.name) != names.end())
                continue;
            camera.removed = m_parts.now();
            gone.push_back(camera);
        }
    }
    for (const RecordedCamera& camera : gone) {
        try {
            m_folder.Write(camera);
        } catch (const RecordingError& error) {
            // The next start finds it missing from the settings again.
            Console::Get().Log("recording", error.what());
        }
    }
}

std::vector<RecordedCamera> Library::Cameras() const {
    const std::lock_guard guard(m_mutex);
    return m_cameras;
}

std::int64_t Library::IdOf(std::string_view name) const {
    const std::lock_guard guard(m_mutex);
    const auto found = std::ranges::find_if(
        m_cameras, [&](const RecordedCamera& camera) { return camera.removed == 0 && camera.name == name; });
    return found != m_cameras.end() ? found->id : 0;
}

std::optional<std::string> Library::Full() const {
    const std::lock_guard guard(m_mutex);
    return m_full.empty() ? std::nullopt : std::optional(m_full);
}

RecordedFile Library::Begin(const std::string& camera, UnixMs begin) {
    std::int64_t id = IdOf(camera);
    if (id == 0) {
        RecordedCamera made{.name = camera};
        {
            const std::lock_guard guard(m_mutex);
            if (!m_open)
                throw RecordingError("the folder " + m_folder.Path() + " cannot be used yet", EACCES);
            id = made.id = ++m_lastId;
        }
        m_folder.Write(made);
        const std::lock_guard guard(m_mutex);
        m_cameras.push_back(made);
    }
    RecordedFile file{.begin = begin, .end = begin, .state = FileState::Open};
    {
        const std::lock_guard guard(m_mutex);
        file.key = {id, ++m_lastNumbers[id]};
        m_begun.insert(file.key);
    }
    m_folder.MakePlaceFor(file);
    Put(file);
    return file;
}

void Library::Put(RecordedFile file) {
    const std::lock_guard guard(m_mutex);
    if (const auto writing = m_writing.find(file.key); writing != m_writing.end())
        file.keep = writing->second.keep;
    m_pending[file.key] = file;
    if (file.state == FileState::Open) {
        m_writing[file.key] = file;
        return;
    }
    m_writing.erase(file.key);
    m_changed = true;
    m_wake.notify_all();
}

void Library::Forget(FileKey key) {
    const std::lock_guard guard(m_mutex);
    m_pending[key] = std::nullopt;
    m_writing.erase(key);
}

void Library::OnEndWanted(std::function<void(FileKey)> end) {
    const std::lock_guard guard(m_endMutex);
    m_end = std::move(end);
}

bool Library::Keep(FileKey key, bool keep) {
    const auto find = [&](Index& index) { return index.Find(key); };
    std::optional<RecordedFile> file;
    {
        const std::lock_guard guard(m_mutex);
        if (const auto pending = m_pending.find(key); pending != m_pending.end())
            file = pending->second;
    }
    if (!file)
        file = Ask<std::optional<RecordedFile>>(find);
    if (!file)
        return false;
    try {
        m_folder.Keep(*file, keep);
    } catch (const RecordingError& error) {
        Console::Get().Log("recording", error.what());
        return false;
    }
    const std::lock_guard guard(m_mutex);
    // It may have grown since.
    if (const auto writing = m_writing.find(key); writing != m_writing.end()) {
        writing->second.keep = keep;
        file = writing->second;
    } else if (const auto pending = m_pending.find(key); pending != m_pending.end() && pending->second) {
        file = pending->second;
    }
    file->keep = keep;
    m_pending[key] = file;
    m_changed = true; // somebody looks at it
    m_wake.notify_all();
    return true;
}

void Library::AskIndex(const std::function<void(Index&)>& question) const {
    const std::lock_guard reading(m_readMutex);
    {
        const std::lock_guard guard(m_mutex);
        if (std::exchange(m_stale, false))
            m_reader.reset();
    }
    try {
        if (!m_reader)
            m_reader = std::make_unique<Index>(IndexPath(), Index::Access::Read, m_parts.indexWait);
        question(*m_reader);
    } catch (const IndexError& error) {
        if (error.kind == IndexError::Kind::Locked)
            return;
        m_reader.reset();
        const std::lock_guard guard(m_mutex);
        m_suspect = error.kind == IndexError::Kind::Damaged;
    }
}

void Library::Settle() {
    std::unique_lock lock(m_mutex);
    const std::uint64_t wanted = ++m_asked;
    m_wake.notify_all();
    m_settled.wait(lock, [&] { return m_done >= wanted; });
}

void Library::Work() {
    auto next = Clock::now();
    auto end = Clock::time_point::max();
    for (;;) {
        std::uint64_t asked = 0;
        bool stop = false;
        {
            std::unique_lock lock(m_mutex);
            m_wake.wait_until(lock, next, [&] { return m_stop || m_changed || m_asked > m_done; });
            asked = m_asked;
            stop = m_stop;
            m_changed = false;
        }
        if (stop && end == Clock::time_point::max())
            end = Clock::now() + kApplyWithin;
        const bool whole = Round();
        next = whole ? Clock::now() + kRound : Clock::now();
        const std::lock_guard guard(m_mutex);
        if (whole) {
            m_done = std::max(m_done, asked);
            m_settled.notify_all();
        }
        if (stop && (!m_open || m_pending.empty() || Clock::now() >= end))
            return;
    }
}

// True when there is nothing left that could be done now.
bool Library::Round() {
    bool open = false;
    {
        const std::lock_guard guard(m_mutex);
        open = m_open;
    }
    if (!open && !OpenFolder())
        return true;
    try {
        OpenIndex();
        Apply();
        Adopt();
        Retain();
        FollowEvents();
        SetLocked(false);
        return m_adoption.IsDone();
    } catch (const IndexError& error) {
        switch (error.kind) {
        case IndexError::Kind::Damaged:
            Console::Get().Log("recording", error.what());
            return !DropIndex(true);
        case IndexError::Kind::Outdated:
            return !DropIndex(false);
        case IndexError::Kind::Locked:
            SetLocked(true);
            break;
        case IndexError::Kind::NotWritable:
            m_index.reset();
            RemoveOldestWithoutIndex();
            break;
        }
    }
    return true;
}

bool Library::OpenFolder() {
    RecordingsFolder::Content content;
    try {
        m_folder.Open();
        content = m_folder.Look();
    } catch (const RecordingError& error) {
        SetFull(error.what());
        return false;
    }
    const std::lock_guard guard(m_mutex);
    m_cameras = std::move(content.cameras);
    for (const RecordedCamera& camera : m_cameras) {
        const auto& files = content.files[camera.id];
        m_lastNumbers[camera.id] = files.empty() ? 0 : files.back().key.number;
        m_lastId = camera.id;
    }
    m_adoption.Begin(std::move(content.files));
    m_full.clear();
    m_open = true;
    return true;
}

void Library::OpenIndex() {
    {
        const std::lock_guard guard(m_mutex);
        if (std::exchange(m_suspect, false))
            m_index.reset(); // which is looked through when it is opened
    }
    if (m_index)
        return;
    m_index = std::make_unique<Index>(IndexPath(), Index::Access::Write, m_parts.indexWait);
    const std::lock_guard guard(m_mutex);
    m_stale = true;
}

void Library::Apply() {
    Pending pending;
    {
        const std::lock_guard guard(m_mutex);
        pending.swap(m_pending);
    }
    if (pending.empty())
        return;
    try {
        Index::Change change(*m_index);
        for (const auto& [key, file] : pending) {
            if (file)
                m_index->Put(*file);
            else
                m_index->Remove(key);
        }
        change.End();
    } catch (const IndexError&) {
        const std::lock_guard guard(m_mutex);
        m_pending.merge(pending); // what has come since is newer, and stays
        throw;
    }
}

void Library::Adopt() {
    if (m_adoption.IsDone())
        return;
    std::set<FileKey> begun;
    {
        const std::lock_guard guard(m_mutex);
        begun = m_begun;
    }
    m_adoption.GoOn(*m_index, begun);
    if (m_adoption.IsDone()) {
        const std::lock_guard guard(m_mutex);
        m_begun.clear();
    }
}

void Library::Retain() {
    RetentionLimits limits;
    std::vector<RecordedCamera> cameras;
    bool paused = false;
    {
        const std::lock_guard guard(m_mutex);
        if (!m_limits)
            return;
        limits = *m_limits;
        cameras = m_cameras;
        paused = !m_full.empty();
    }
    std::uint64_t freed = 0;
    const auto space = m_parts.disk.SpaceAt(m_folder.Path());
    for (int i = 0; i < kMostRemovedAtOnce; ++i) {
        auto left = space;
        if (left)
            left->free += freed; // some file systems tell late
        const RetentionStep step = NextRetentionStep(*m_index, cameras, limits, m_parts.now(), left, paused);
        switch (step.kind) {
        case RetentionStep::Kind::Remove:
            try {
                Remove(step.file);
            } catch (const RecordingError& error) {
                SetFull(error.what());
                return;
            }
            freed += step.file.bytes;
            continue;
        case RetentionStep::Kind::End: {
            const std::lock_guard guard(m_endMutex);
            if (m_end)
                m_end(step.file.key);
            break;
        }
        case RetentionStep::Kind::Pause:
        case RetentionStep::Kind::Nothing:
            break;
        }
        SetFull(step.kind == RetentionStep::Kind::Pause ? step.reason : "");
        break;
    }
    if (freed > 0)
        RemoveCamerasWithoutFiles();
}

// The index has what the journal has, so it is the same when it is made again. Both keep what is shown with
// the recordings that are there.
void Library::FollowEvents() {
    EventLog* const log = m_parts.events;
    if (log == nullptr)
        return;
    // What the journal has not yet may have another number after a crash.
    const std::uint64_t written = log->WrittenNumber();
    std::uint64_t last = m_index->LastEvent();
    if (last > written) { // of a journal that is gone
        Index::Change change(*m_index);
        m_index->RemoveEvents();
        change.End();
        last = 0;
    }
    while (last < written) {
        const std::vector<EventPtr> news = log->After(last, kEventsAtOnce);
        Index::Change change(*m_index);
        for (const EventPtr& event : news) {
            if (event->number <= written && IsOfPictures(event->kind))
                m_index->PutEvent(*event);
        }
        last = news.empty() ? written : std::min(written, news.back()->number);
        m_index->SetLastEvent(last);
        change.End();
    }
    std::optional<RetentionLimits> limits;
    {
        const std::lock_guard guard(m_mutex);
        limits = m_limits;
    }
    if (!limits || limits->days == 0 || !m_adoption.IsDone())
        return;
    const auto first = m_index->Begin();
    const UnixMs wanted = m_parts.now() - std::max(limits->days, kLeastEventDays) * kDayMs;
    const auto from = std::chrono::floor<std::chrono::days>(
        Event::Time(std::chrono::milliseconds(std::min(wanted, first.value_or(wanted)))));
    log->KeepFrom(from);
    m_index->RemoveEventsBefore(Event::Time(from).time_since_epoch().count());
}

// The file first: a crash in between leaves a line in the index, which the next start takes out.
void Library::Remove(const RecordedFile& file) {
    if (m_folder.IsKept(file)) { // by a person's own hand
        RecordedFile kept = file;
        kept.keep = true;
        m_index->Put(kept);
        return;
    }
    m_folder.Remove(file);
    m_index->Remove(file.key);
}

void Library::RemoveCamerasWithoutFiles() {
    for (const RecordedCamera& camera : Cameras()) {
        if (camera.removed == 0 || m_index->Oldest(camera.id, true) || m_index->BytesOf(camera.id).all > 0)
            continue;
        m_folder.Remove(camera);
        const std::lock_guard guard(m_mutex);
        std::erase_if(m_cameras, [&](const RecordedCamera& other) { return other.id == camera.id; });
    }
}

// On a disk without any room the index cannot be written, and it is the index that says what may go.
void Library::RemoveOldestWithoutIndex() {
    const auto space = m_parts.disk.SpaceAt(m_folder.Path());
    if (!space || space->free > kRoomForIndex)
        return;
    try {
        std::optional<RecordedFile> oldest;
        for (const auto& [camera, files] : m_folder.Look().files) {
            for (const RecordedFile& file : files) {
                if (!file.keep && !IsWriting(file.key) && (!oldest || file.begin < oldest->begin))
                    oldest = file;
            }
        }
        if (!oldest)
            return;
        m_folder.Remove(*oldest);
        Forget(oldest->key);
    } catch (const RecordingError& error) {
        Console::Get().Log("recording", error.what());
    }
}

// False when it cannot be put away.
bool Library::DropIndex(bool damaged) {
    m_index.reset();
    {
        const std::lock_guard reading(m_readMutex);
        m_reader.reset();
    }
    const std::string path = IndexPath();
    const bool gone = damaged ? std::rename(path.c_str(), (path + ".damaged").c_str()) == 0 || errno == ENOENT
                              : m_parts.disk.Remove(path);
    if (!gone)
        return false;
    for (const char* suffix : {"-wal", "-shm"})
        (void)m_parts.disk.Remove(path + suffix);
    if (damaged)
        m_parts.tell({RecordingNews::Kind::IndexLost,
                      {},
                      "the index of recordings was damaged: it is made again from the recordings"});
    try {
        {
            // What is being written is put down again by who writes it.
            const std::lock_guard guard(m_mutex);
            m_begun.clear();
            for (const auto& [key, file] : m_writing) {
                m_begun.insert(key);
                m_pending.try_emplace(key, file);
            }
        }
        m_adoption.Begin(m_folder.Look().files);
    } catch (const RecordingError& error) {
        Console::Get().Log("recording", error.what());
    }
    return true;
}

void Library::SetLocked(bool locked) {
    if (std::exchange(m_locked, locked) == locked)
        return;
    m_parts.tell(
        locked ? RecordingNews{RecordingNews::Kind::IndexLocked,
                               {},
                               "another program holds the index of recordings: recording goes on, and "
                               "what is new shows once it lets go"}
               : RecordingNews{
                     RecordingNews::Kind::IndexUnlocked, {}, "the index of recordings can be written again"});
}

void Library::SetFull(std::string reason) {
    const std::lock_guard guard(m_mutex);
    m_full = std::move(reason);
}

bool Library::IsWriting(FileKey key) const {
    const std::lock_guard guard(m_mutex);
    return m_writing.contains(key);
}

} // namespace host
