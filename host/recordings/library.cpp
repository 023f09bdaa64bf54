#include "host/recordings/library.h"

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <utility>

#include "host/log/console.h"
#include "host/recordings/matroska_reader.h"

namespace host {
namespace {

using namespace std::chrono_literals;

// How often it is looked what is too much, and what could not be done is tried again.
constexpr std::chrono::milliseconds kRound = 5s;
// So many files are looked into between two looks at what else is to be done.
constexpr std::size_t kExaminedAtOnce = 50;
// And so many are removed. A disk is told of all at the end alone.
constexpr int kMostRemovedAtOnce = 1000;
// How long the end of the host waits for an index that cannot be had.
constexpr std::chrono::milliseconds kApplyWithin = 3s;
// A file of fewer bytes may have been cut before its first picture. A larger one without any is damaged, and
// may hold what other programs find.
constexpr std::uint64_t kMostWithoutPicture = 64 * 1024;
// What a change of the index needs at least.
constexpr std::uint64_t kRoomForIndex = 1024 * 1024;

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
    : m_parts(Completed(std::move(parts))), m_folder(m_parts.folder, m_parts.disk) {
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
    m_pending.files[file.key] = file;
    if (file.state == FileState::Open) {
        m_writing[file.key] = file;
        return;
    }
    m_writing.erase(file.key);
    m_ended = true;
    m_wake.notify_all();
}

void Library::Forget(FileKey key) {
    const std::lock_guard guard(m_mutex);
    m_pending.files[key] = std::nullopt;
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
        if (const auto pending = m_pending.files.find(key); pending != m_pending.files.end())
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
    } else if (const auto pending = m_pending.files.find(key);
               pending != m_pending.files.end() && pending->second) {
        file = pending->second;
    }
    file->keep = keep;
    m_pending.files[key] = file;
    return true;
}

void Library::PutMotion(std::int64_t camera, TimeSpan motion) {
    const std::lock_guard guard(m_mutex);
    m_pending.motion[{camera, motion.begin}] = motion.end;
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
            m_wake.wait_until(lock, next, [&] { return m_stop || m_ended || m_asked > m_done; });
            asked = m_asked;
            stop = m_stop;
            m_ended = false;
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
        if (stop && (!m_open || m_pending.IsEmpty() || Clock::now() >= end))
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
        ExamineSome();
        Retain();
        SetLocked(false);
        return m_unknown.empty();
    } catch (const IndexError& error) {
        switch (error.kind) {
        case IndexError::Kind::Damaged:
            Console::Get().Log("recording", error.what());
            return !DropIndex();
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
    m_found = std::move(content.files);
    for (const RecordedCamera& camera : m_cameras) {
        const auto& files = m_found[camera.id];
        m_lastNumbers[camera.id] = files.empty() ? 0 : files.back().key.number;
        m_lastId = camera.id;
    }
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
        pending = std::exchange(m_pending, {});
    }
    if (pending.IsEmpty())
        return;
    try {
        Index::Change change(*m_index);
        for (const auto& [key, file] : pending.files) {
            if (file)
                m_index->Put(*file);
            else
                m_index->Remove(key);
        }
        for (const auto& [key, end] : pending.motion)
            m_index->PutMotion(key.first, {key.second, end});
        change.End();
    } catch (const IndexError&) {
        const std::lock_guard guard(m_mutex);
        m_pending.files.merge(pending.files); // what has come since is newer, and stays
        m_pending.motion.merge(pending.motion);
        throw;
    }
}

// Has the index show the files that the folder had, and no other ones.
void Library::Adopt() {
    while (!m_found.empty()) {
        Adopt(m_found.begin()->first, m_found.begin()->second);
        m_found.erase(m_found.begin());
    }
}

void Library::Adopt(std::int64_t camera, const std::vector<RecordedFile>& found) {
    std::set<FileKey> begun;
    {
        const std::lock_guard guard(m_mutex);
        begun = m_begun;
    }
    std::map<FileKey, RecordedFile> rows;
    for (const RecordedFile& row : m_index->FilesOf(camera))
        rows.emplace(row.key, row);
    std::vector<RecordedFile> unknown;
    Index::Change change(*m_index);
    for (RecordedFile file : found) {
        const auto row = rows.find(file.key);
        const bool known = row != rows.end() && row->second.state == FileState::Finished &&
                           row->second.bytes == file.bytes && row->second.begin == file.begin;
        if (!begun.contains(file.key)) {
            file.end = known ? row->second.end : file.begin;
            file.state = known ? FileState::Finished : FileState::Cut;
            // It counts at once; how long it is comes later.
            if (!known || row->second.keep != file.keep)
                m_index->Put(file);
            if (!known)
                unknown.push_back(file);
        }
        if (row != rows.end())
            rows.erase(row);
    }
    for (const auto& [key, row] : rows) {
        if (!begun.contains(key))
            m_index->Remove(key);
    }
    change.End();
    m_unknown.insert(m_unknown.end(), unknown.begin(), unknown.end());
}

void Library::ExamineSome() {
    std::vector<std::pair<RecordedFile, bool>> examined; // true: it is to be seen
    for (std::size_t i = 0; i < kExaminedAtOnce && i < m_unknown.size(); ++i) {
        const RecordedFile& file = m_unknown[i];
        // Retention may have been quicker.
        if (!m_index->Find(file.key))
            continue;
        const auto whole = Examine(file);
        examined.emplace_back(whole.value_or(file), whole.has_value());
    }
    if (!examined.empty()) {
        Index::Change change(*m_index);
        for (auto& [file, holds] : examined) {
            if (!holds)
                m_index->Remove(file.key);
            else if (const auto row = m_index->Find(file.key)) {
                file.keep = row->keep;
                m_index->Put(file);
            }
        }
        change.End();
    }
    m_unknown.erase(m_unknown.begin(), m_unknown.begin() + static_cast<std::ptrdiff_t>(
                                                               std::min(kExaminedAtOnce, m_unknown.size())));
    if (m_unknown.empty()) {
        const std::lock_guard guard(m_mutex);
        m_begun.clear();
    }
}

// What is in the file, which is made whole where a crash has cut it. Nothing when there is nothing in it, and
// then it is gone.
std::optional<RecordedFile> Library::Examine(RecordedFile file) const {
    const std::string path = m_folder.PathOf(file);
    try {
        if (const auto length = MatroskaReader(path).Length()) {
            file.end = file.begin + *length;
            file.state = FileState::Finished;
            return file;
        }
        if (const auto finished = FinishCutFile(m_parts.disk, path, file.begin)) {
            file.end = file.begin + finished->length;
            file.bytes = finished->bytes;
            file.state = FileState::Finished;
            return file;
        }
    } catch (const RecordingError& error) {
        if (error.error == ENOENT)
            return std::nullopt;
        if (error.error != 0 || file.bytes > kMostWithoutPicture) {
            // It keeps its place until its time has come; the next start tries again.
            Console::Get().Log("recording", error.what());
            return file;
        }
    }
    // Killed before its first picture was written.
    if (file.bytes > kMostWithoutPicture)
        return file;
    try {
        m_folder.Remove(file);
    } catch (const RecordingError&) {
        return file;
    }
    return std::nullopt;
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
    if (freed == 0)
        return;
    RemoveCamerasWithoutFiles();
    // What moved is shown with the recordings.
    const auto oldest = m_index->Oldest(0, true);
    m_index->RemoveMotionBefore(oldest ? oldest->begin : m_parts.now());
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
bool Library::DropIndex() {
    m_index.reset();
    {
        const std::lock_guard reading(m_readMutex);
        m_reader.reset();
    }
    const std::string path = IndexPath();
    if (std::rename(path.c_str(), (path + ".damaged").c_str()) != 0 && errno != ENOENT)
        return false;
    for (const char* suffix : {"-wal", "-shm"})
        (void)m_parts.disk.Remove(path + suffix);
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
                m_pending.files.try_emplace(key, file);
            }
        }
        m_unknown.clear();
        m_found = m_folder.Look().files;
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
