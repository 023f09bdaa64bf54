// Writes pictures, JPEG as they are, into a Matroska file (V_MJPEG, times in milliseconds).
#pragma once

#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include "host/recordings/disk.h"
#include "host/recordings/recorded.h"

namespace host {

// Where the bytes of a file go.
class ByteSink {
public:
    ByteSink() = default;
    ByteSink(const ByteSink&) = delete;
    ByteSink& operator=(const ByteSink&) = delete;
    virtual ~ByteSink() = default;

    // Whether bytes may go to any place, so that the end of the file can tell its beginning how long it has
    // become, and where each picture stands. Else `position` always is where the last bytes ended.
    [[nodiscard]] virtual bool CanSeek() const noexcept = 0;
    // All of them. False, with errno, when that is not possible.
    virtual bool Write(std::uint64_t position, std::span<const std::uint8_t> bytes) = 0;
};

// A new file of a disk. It stays when this goes.
class FileSink : public ByteSink {
public:
    // Throws RecordingError.
    FileSink(Disk& disk, std::string path);

    [[nodiscard]] bool CanSeek() const noexcept override { return true; }
    bool Write(std::uint64_t position, std::span<const std::uint8_t> bytes) override;
    // Returns when all of it is on the disk. Throws RecordingError.
    void Sync() const;
    [[nodiscard]] const std::string& Path() const noexcept { return m_path; }

private:
    Disk& m_disk;
    const std::string m_path;
    platform::Descriptor m_file;
};

struct MovieHead {
    std::string title; // the camera's name
    UnixMs begin = 0;  // of its first picture
    int width = 0;
    int height = 0;
};

// One thread at a time. After a throw nothing can be added; Finish may be tried.
class MatroskaWriter {
public:
    // Writes the head. Throws RecordingError, as all below do. `sink` outlives this.
    MatroskaWriter(ByteSink& sink, const MovieHead& head);
    MatroskaWriter(const MatroskaWriter&) = delete;
    MatroskaWriter& operator=(const MatroskaWriter&) = delete;
    ~MatroskaWriter();

    // `time`: milliseconds after the beginning, above that of the picture before.
    void Add(std::int64_t time, std::string_view jpeg);
    // All that was added goes to the sink. libavformat begins a cluster with each picture once the one before
    // has 4 KiB, so a cluster is a picture or some small ones, and no longer than from one flush to the next.
    void Flush();
    // Writes where the pictures stand, and the length. Nothing may follow.
    void Finish();
    // So far, without what waits for a flush.
    [[nodiscard]] std::uint64_t Bytes() const noexcept;

private:
    struct State;
    std::unique_ptr<State> m_state;
};

} // namespace host
