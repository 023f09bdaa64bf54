// Reads pictures out of a Matroska file that MatroskaWriter wrote, also while it is being written and when a
// crash has cut it.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/recordings/disk.h"
#include "host/recordings/recorded.h"

namespace host {

// One thread at a time.
class MatroskaReader {
public:
    // Throws RecordingError for what cannot be read and for what is no such file.
    explicit MatroskaReader(const std::string& path);
    MatroskaReader(const MatroskaReader&) = delete;
    MatroskaReader& operator=(const MatroskaReader&) = delete;
    ~MatroskaReader();

    [[nodiscard]] std::string Title() const;
    [[nodiscard]] int Width() const noexcept;
    [[nodiscard]] int Height() const noexcept;
    // The file was removed: its room comes back once this goes.
    [[nodiscard]] bool IsGone() const noexcept;
    // From its beginning to its last picture, milliseconds; nothing of a file that was not finished.
    [[nodiscard]] std::optional<std::int64_t> Length() const noexcept;

    struct Frame {
        std::int64_t time = 0; // milliseconds after the beginning
        std::string_view jpeg; // until the next call
    };
    // The next picture; nothing at the end, and from the first place on that is damaged.
    std::optional<Frame> Next();
    // Has Next give the newest picture that is not newer than that, or the first one. The file may have grown
    // since. False when there is none.
    bool SeekTo(std::int64_t time);

private:
    struct State;
    std::unique_ptr<State> m_state;
};

// Writes the file anew, whole, in place of one that was cut. Returns its length as Length does, and its size
// in bytes; nothing when it holds no picture (and then it is left as it is). Throws RecordingError, with the
// old file as it was.
struct FinishedFile {
    std::int64_t length = 0;
    std::uint64_t bytes = 0;
};
std::optional<FinishedFile> FinishCutFile(Disk& disk, const std::string& path, UnixMs begin);

} // namespace host
