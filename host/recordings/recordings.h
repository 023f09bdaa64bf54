// Looking back: what was recorded when, and its pictures. For pages; whose right it is to see a camera, they
// ask.
//
// Any thread, several at a time. Calls read the disk and may wait for it. What is being written is there as
// far as it has come to the disk, a second or two behind.
#pragma once

#include <cstddef>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/recordings/library.h"
#include "host/recordings/matroska_reader.h"
#include "host/recordings/source.h"

namespace host {

class Recordings final : public RecordingSource {
public:
    explicit Recordings(Library& library) : m_library(library) {}

    [[nodiscard]] std::vector<RecordedCamera> Cameras() const override { return m_library.Cameras(); }
    // Of the camera in the settings; 0: nothing of it was recorded.
    [[nodiscard]] std::int64_t IdOf(std::string_view camera) const { return m_library.IdOf(camera); }

    [[nodiscard]] std::vector<ListedCamera> Listed() const override;
    [[nodiscard]] std::optional<TimeSpan> Extent(std::int64_t camera) const override;
    [[nodiscard]] RecordedTimes Times(std::int64_t camera, TimeSpan span, UnixMs gap,
                                      bool ofAll) const override;
    [[nodiscard]] std::optional<RecordedPicture> Picture(std::int64_t camera, UnixMs time, int step,
                                                         std::int64_t file) const override;
    [[nodiscard]] std::unique_ptr<StoredFile> Open(FileKey key) const override;
    Kept KeepFiles(std::int64_t camera, TimeSpan span, bool keep) override;
    // Where a file lies; nothing where there is none of that key.
    [[nodiscard]] std::optional<std::string> PathOf(FileKey key) const;
    // The days with recordings, counted from 1970, by a clock that is so many minutes ahead of UTC.
    [[nodiscard]] std::vector<std::int64_t> Days(std::int64_t camera, int minutesAhead) const;
    // When there are pictures, in the order in which they begin. What is less than `gap` apart is one span.
    // Where the wall clock was set back spans overlap.
    [[nodiscard]] std::vector<TimeSpan> Coverage(std::int64_t camera, TimeSpan span, UnixMs gap = 3000) const;
    [[nodiscard]] std::vector<TimeSpan> Motion(std::int64_t camera, TimeSpan span) const;
    // What else happened to the camera, the newest first; with `ofAll` what kept all from being recorded,
    // too.
    [[nodiscard]] std::vector<Event> Events(std::int64_t camera, TimeSpan span, bool ofAll) const;
    // The files that touch a span, as they are numbered; with bytes and whether they are kept.
    [[nodiscard]] std::vector<RecordedFile> Files(std::int64_t camera, TimeSpan span) const;

    // The newest picture at that time or before it within a recording, of several recordings of that time the
    // later one; where there is none, the nearest one. Nothing where nothing was recorded.
    [[nodiscard]] std::optional<RecordedPicture> At(std::int64_t camera, UnixMs time) const;
    // The next picture, or the one before, in the order in which they were recorded.
    [[nodiscard]] std::optional<RecordedPicture> After(std::int64_t camera, std::int64_t file,
                                                       UnixMs time) const;
    [[nodiscard]] std::optional<RecordedPicture> Before(std::int64_t camera, std::int64_t file,
                                                        UnixMs time) const;

    // Lets go of files that nobody has asked for lately, and of those that were removed, whose room the disk
    // has back then only. To be called every second or so.
    void CloseIdle();

    [[nodiscard]] RecordedRange Range(std::int64_t camera, TimeSpan span) const override;

    // Keeps the files that touch a span from being removed, or lets them go. The number of those that it
    // could.
    std::size_t Keep(std::int64_t camera, TimeSpan span, bool keep);

private:
    struct OpenFile;
    [[nodiscard]] std::shared_ptr<OpenFile> Take(const RecordedFile& file) const;
    void GiveBack(std::shared_ptr<OpenFile> file) const;
    [[nodiscard]] std::optional<RecordedPicture> Read(const RecordedFile& file, std::int64_t from,
                                                      std::int64_t after) const;
    // Events know a camera by its name: who had it then, and when in that span it was this camera.
    [[nodiscard]] std::pair<std::string, TimeSpan> NamedIn(std::int64_t camera, TimeSpan span) const;
    [[nodiscard]] std::optional<RecordedFile> FileAt(std::int64_t camera, UnixMs time) const;

    Library& m_library;
    // Files that were read last, as who drags along a day comes back to them. Who reads takes one out.
    mutable std::mutex m_mutex;
    mutable std::list<std::shared_ptr<OpenFile>> m_open; // the newest first
};

} // namespace host
