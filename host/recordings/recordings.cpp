#include "host/recordings/recordings.h"

#include <algorithm>
#include <limits>
#include <utility>

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

namespace host {
namespace {

constexpr std::size_t kMostOpenFiles = 16;
constexpr std::chrono::seconds kOpenFor{5};
constexpr std::size_t kMostEvents = 1000;
constexpr std::int64_t kNoTime = std::numeric_limits<std::int64_t>::min();
// What is not much further on is read on to; a seek reads as much as some pictures.
constexpr UnixMs kReadOnFor = 500;

RecordedPicture PictureOf(const RecordedFile& file, const MatroskaReader& reader,
                          const MatroskaReader::Frame& frame) {
    return {.file = file.key.number,
            .time = file.begin + frame.time,
            .width = reader.Width(),
            .height = reader.Height(),
            .jpeg = std::string(frame.jpeg)};
}

// Those of a library, file by file.
class LibraryPictures final : public RecordedRange::Pictures {
public:
    LibraryPictures(const Library& library, std::vector<RecordedFile> files, TimeSpan span)
        : m_library(library), m_files(std::move(files)), m_span(span) {}
    std::optional<RecordedPicture> NextFrom(UnixMs time) override;
    [[nodiscard]] UnixMs EndBefore() const noexcept override { return m_endBefore; }

private:
    const Library& m_library;
    const std::vector<RecordedFile> m_files;
    const TimeSpan m_span;
    std::size_t m_next = 0; // the file to be opened
    UnixMs m_newest = 0;    // the time of the newest picture that was read
    UnixMs m_endBefore = 0;
    std::unique_ptr<MatroskaReader> m_reader;
};

std::optional<RecordedPicture> LibraryPictures::NextFrom(UnixMs time) {
    while (m_next < m_files.size() || m_reader) {
        try {
            if (!m_reader) {
                const RecordedFile& file = m_files[m_next++];
                m_reader = std::make_unique<MatroskaReader>(m_library.PathOf(file));
                m_endBefore = m_newest;
                time = m_span.begin;
                if (time > file.begin)
                    (void)m_reader->SeekTo(time - file.begin);
            } else if (time - m_newest > kReadOnFor) {
                (void)m_reader->SeekTo(std::min(time, m_span.end) - m_files[m_next - 1].begin);
            }
            const RecordedFile& file = m_files[m_next - 1];
            while (const auto frame = m_reader->Next()) {
                const UnixMs at = file.begin + frame->time;
                if (at > m_span.end)
                    break;
                if (at < m_span.begin)
                    continue;
                m_newest = at;
                if (at >= time)
                    return PictureOf(file, *m_reader, *frame);
            }
        } catch (const RecordingError&) {
            // Retention was quicker.
        }
        m_reader.reset();
    }
    return std::nullopt;
}

class FileOnDisk final : public StoredFile {
public:
    explicit FileOnDisk(const std::string& path) : m_file(::open(path.c_str(), O_RDONLY | O_CLOEXEC)) {
        struct stat state {};
        m_there = m_file && ::fstat(m_file.Get(), &state) == 0 && S_ISREG(state.st_mode);
        name = path.substr(path.rfind('/') + 1);
        size = m_there ? static_cast<std::uint64_t>(state.st_size) : 0;
        version = std::to_string(size) + "-" + std::to_string(state.st_mtim.tv_sec) + "." +
                  std::to_string(state.st_mtim.tv_nsec);
    }
    [[nodiscard]] bool IsThere() const noexcept { return m_there; }
    [[nodiscard]] std::string Read(std::uint64_t at, std::size_t most) override {
        std::string bytes(most, '\0');
        const ssize_t read = ::pread(m_file.Get(), bytes.data(), bytes.size(), static_cast<off_t>(at));
        bytes.resize(read > 0 ? static_cast<std::size_t>(read) : 0);
        return bytes;
    }

private:
    const Descriptor m_file;
    bool m_there = false;
};

} // namespace

struct Recordings::OpenFile {
    FileKey key;
    FileState state; // when it was opened
    MatroskaReader reader;
    Clock::time_point used{};
};

std::optional<TimeSpan> Recordings::Extent(std::int64_t camera) const {
    return m_library.Ask<std::optional<TimeSpan>>([&](Index& index) -> std::optional<TimeSpan> {
        const auto first = index.FirstFrom(camera, 0);
        const auto last = index.LastBefore(camera, std::numeric_limits<UnixMs>::max());
        return first && last ? std::optional(TimeSpan{first->begin, last->end}) : std::nullopt;
    });
}

// A question each, so that whoever looks at a picture meanwhile does not wait for all of them.
std::vector<ListedCamera> Recordings::Listed() const {
    std::vector<ListedCamera> listed;
    for (const RecordedCamera& camera : Cameras()) {
        if (const auto extent = Extent(camera.id))
            listed.push_back({camera, *extent});
    }
    return listed;
}

RecordedTimes Recordings::Times(std::int64_t camera, TimeSpan span, UnixMs gap, bool ofAll) const {
    return {.extent = Extent(camera),
            .spans = Coverage(camera, span, gap),
            .motion = Motion(camera, span),
            .files = Files(camera, span),
            .events = Events(camera, span, ofAll)};
}

std::optional<RecordedPicture> Recordings::Picture(std::int64_t camera, UnixMs time, int step,
                                                   std::int64_t file) const {
    if (file == 0 || step == 0) {
        auto picture = At(camera, time);
        if (!picture || step == 0 || (step > 0 && picture->time > time) || (step < 0 && picture->time < time))
            return picture;
        file = picture->file;
    }
    return step > 0 ? After(camera, file, time) : Before(camera, file, time);
}

std::unique_ptr<StoredFile> Recordings::Open(FileKey key) const {
    const auto path = PathOf(key);
    auto file = path ? std::make_unique<FileOnDisk>(*path) : nullptr;
    return file && file->IsThere() ? std::move(file) : nullptr;
}

RecordingSource::Kept Recordings::KeepFiles(std::int64_t camera, TimeSpan span, bool keep) {
    return {.files = Files(camera, span).size(), .changed = Keep(camera, span, keep)};
}

std::optional<std::string> Recordings::PathOf(FileKey key) const {
    const auto file =
        m_library.Ask<std::optional<RecordedFile>>([&](Index& index) { return index.Find(key); });
    return file ? std::optional(m_library.PathOf(*file)) : std::nullopt;
}

std::vector<std::int64_t> Recordings::Days(std::int64_t camera, int minutesAhead) const {
    return m_library.Ask<std::vector<std::int64_t>>(
        [&](Index& index) { return index.DaysOf(camera, std::int64_t{minutesAhead} * 60'000); });
}

std::vector<TimeSpan> Recordings::Coverage(std::int64_t camera, TimeSpan span, UnixMs gap) const {
    std::vector<TimeSpan> covered;
    for (const RecordedFile& file : Files(camera, span)) {
        // One that begins within the one before it is of a clock that was set back.
        if (!covered.empty() && file.begin >= covered.back().end && file.begin - covered.back().end < gap)
            covered.back().end = file.end;
        else
            covered.push_back({file.begin, file.end});
    }
    for (TimeSpan& part : covered)
        part = {std::max(part.begin, span.begin), std::min(part.end, span.end)};
    std::ranges::sort(covered, {}, &TimeSpan::begin);
    return covered;
}

std::vector<TimeSpan> Recordings::Motion(std::int64_t camera, TimeSpan span) const {
    const auto [name, then] = NamedIn(camera, span);
    return m_library.Ask<std::vector<TimeSpan>>(
        [&, &name = name, &then = then](Index& index) { return index.MotionOf(name, then); });
}

std::vector<Event> Recordings::Events(std::int64_t camera, TimeSpan span, bool ofAll) const {
    const auto [name, then] = NamedIn(camera, span);
    return m_library.Ask<std::vector<Event>>([&, &name = name, &then = then](Index& index) {
        return index.EventsOf(name, then, ofAll, kMostEvents);
    });
}

std::pair<std::string, TimeSpan> Recordings::NamedIn(std::int64_t camera, TimeSpan span) const {
    const auto cameras = Cameras();
    const auto found = std::ranges::find(cameras, camera, &RecordedCamera::id);
    if (found == cameras.end())
        return {};
    if (found->removed != 0)
        span.end = std::min(span.end, found->removed);
    for (auto before = cameras.begin(); before != found; ++before) {
        if (before->name == found->name)
            span.begin = std::max(span.begin, before->removed + 1);
    }
    return {found->name, span};
}

std::vector<RecordedFile> Recordings::Files(std::int64_t camera, TimeSpan span) const {
    auto files =
        m_library.Ask<std::vector<RecordedFile>>([&](Index& index) { return index.FilesOf(camera, span); });
    std::ranges::sort(files, {}, &RecordedFile::key);
    return files;
}

std::shared_ptr<Recordings::OpenFile> Recordings::Take(const RecordedFile& file) const {
    {
        const std::lock_guard guard(m_mutex);
        const auto found = std::ranges::find_if(
            m_open, [&](const auto& open) { return open->key == file.key && open->state == file.state; });
        if (found != m_open.end()) {
            auto open = *found;
            m_open.erase(found);
            return open;
        }
    }
    return std::shared_ptr<OpenFile>(
        new OpenFile{file.key, file.state, MatroskaReader(m_library.PathOf(file)), {}});
}

void Recordings::GiveBack(std::shared_ptr<OpenFile> file) const {
    std::shared_ptr<OpenFile> closed; // outside the lock
    file->used = Clock::now();
    const std::lock_guard guard(m_mutex);
    m_open.push_front(std::move(file));
    if (m_open.size() > kMostOpenFiles) {
        closed = m_open.back();
        m_open.pop_back();
    }
}

void Recordings::CloseIdle() {
    std::list<std::shared_ptr<OpenFile>> closed; // outside the lock
    const std::lock_guard guard(m_mutex);
    const auto oldest = Clock::now() - kOpenFor;
    for (auto open = m_open.begin(); open != m_open.end();) {
        const auto next = std::next(open);
        if ((*open)->used < oldest || (*open)->reader.IsGone())
            closed.splice(closed.end(), m_open, open);
        open = next;
    }
}

// The first picture that follows `after`, of those from the newest one on that is not newer than `from`; both
// milliseconds after the file's beginning.
std::optional<RecordedPicture> Recordings::Read(const RecordedFile& file, std::int64_t from,
                                                std::int64_t after) const {
    try {
        auto open = Take(file);
        if (!open->reader.SeekTo(from))
            return std::nullopt;
        auto frame = open->reader.Next();
        while (frame && frame->time <= after)
            frame = open->reader.Next();
        if (!frame)
            return std::nullopt;
        auto picture = PictureOf(file, open->reader, *frame);
        GiveBack(std::move(open));
        return picture;
    } catch (const RecordingError&) {
        return std::nullopt; // gone, or damaged
    }
}

std::optional<RecordedFile> Recordings::FileAt(std::int64_t camera, UnixMs time) const {
    return m_library.Ask<std::optional<RecordedFile>>([&](Index& index) -> std::optional<RecordedFile> {
        const auto files = index.FilesOf(camera, {time, time});
        if (!files.empty())
            return *std::ranges::max_element(files, {}, &RecordedFile::key);
        const auto before = index.LastBefore(camera, time);
        const auto after = index.FirstFrom(camera, time);
        if (!before || (after && after->begin - time < time - before->end))
            return after;
        return before;
    });
}

std::optional<RecordedPicture> Recordings::At(std::int64_t camera, UnixMs time) const {
    const auto file = FileAt(camera, time);
    return file ? Read(*file, std::max<std::int64_t>(time - file->begin, 0), kNoTime) : std::nullopt;
}

std::optional<RecordedPicture> Recordings::After(std::int64_t camera, std::int64_t file, UnixMs time) const {
    FileKey key{camera, file};
    if (const auto found =
            m_library.Ask<std::optional<RecordedFile>>([&](Index& index) { return index.Find(key); })) {
        const std::int64_t at = time - found->begin;
        if (auto picture = Read(*found, std::max<std::int64_t>(at, 0), at))
            return picture;
    }
    while (const auto next =
               m_library.Ask<std::optional<RecordedFile>>([&](Index& index) { return index.After(key); })) {
        if (auto picture = Read(*next, 0, kNoTime))
            return picture;
        key = next->key;
    }
    return std::nullopt;
}

std::optional<RecordedPicture> Recordings::Before(std::int64_t camera, std::int64_t file, UnixMs time) const {
    FileKey key{camera, file};
    if (const auto found =
            m_library.Ask<std::optional<RecordedFile>>([&](Index& index) { return index.Find(key); })) {
        const std::int64_t at = time - found->begin - 1;
        if (at >= 0) {
            if (auto picture = Read(*found, at, kNoTime); picture && picture->time < time)
                return picture;
        }
    }
    while (const auto before =
               m_library.Ask<std::optional<RecordedFile>>([&](Index& index) { return index.Before(key); })) {
        if (auto picture = Read(*before, before->end - before->begin, kNoTime))
            return picture;
        key = before->key;
    }
    return std::nullopt;
}

RecordedRange Recordings::Range(std::int64_t camera, TimeSpan span) const {
    return RecordedRange(std::make_unique<LibraryPictures>(m_library, Files(camera, span), span));
}

std::size_t Recordings::Keep(std::int64_t camera, TimeSpan span, bool keep) {
    const auto files = Files(camera, span);
    return static_cast<std::size_t>(std::ranges::count_if(
        files, [&](const RecordedFile& file) { return m_library.Keep(file.key, keep); }));
}

} // namespace host
