// One file of a camera while it is being written.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/wait.h"
#include "host/recordings/library.h"
#include "host/recordings/matroska_writer.h"
#include "host/recordings/picture_queue.h"

namespace host {

// A picture with all that a file has to know of it.
struct Shot {
    Clock::time_point arrival;
    UnixMs utc = 0;
    std::uint64_t connection = 0;
    int width = 0;
    int height = 0;
    std::string_view jpeg;
};

// So far the wall clock may be off from what it was to be.
inline constexpr UnixMs kMostClockDifference = 2000;

// The recorder's thread.
class Segment {
public:
    // Begins a file with that picture, which is to be added, too. Throws RecordingError, and then there is no
    // file.
    Segment(Library& library, Disk& disk, const std::string& camera, const Shot& first,
            const RecorderLimits& limits);
    Segment(const Segment&) = delete;
    Segment& operator=(const Segment&) = delete;

    // Whether a picture goes on with this file. Times in it are those of the monotonic clock, from the UTC of
    // its first picture on: where the wall clock has come to differ by two seconds, where there was a long
    // pause, and for another connection or size another file begins.
    [[nodiscard]] bool Takes(const Shot& shot) const noexcept;
    // Throws RecordingError.
    void Add(const Shot& shot);
    // What came within the last second goes to the disk. True when there was something. Throws
    // RecordingError.
    bool Flush(Clock::time_point now);
    // No picture has come for long.
    [[nodiscard]] bool IsIdle(Clock::time_point now) const noexcept;
    // Makes the file whole, as far as the disk allows. A file without a picture goes.
    void End() noexcept;

    [[nodiscard]] FileKey Key() const noexcept { return m_file.key; }

private:
    [[nodiscard]] std::int64_t TimeOf(const Shot& shot) const noexcept;

    Library& m_library;
    Disk& m_disk;
    const RecorderLimits m_limits;
    RecordedFile m_file;
    std::optional<FileSink> m_sink;
    std::optional<MatroskaWriter> m_writer;
    const Shot m_first;       // without its bytes
    std::int64_t m_last = -1; // of the newest picture, milliseconds after the first
    std::int64_t m_flushed = 0;
    std::uint64_t m_pictureBytes = 0;
    bool m_reached = false;    // a picture is on the disk
    Clock::time_point m_added; // when the newest picture was, and the oldest one that waits for a flush
    std::optional<Clock::time_point> m_waits;
};

} // namespace host
