// One open file, read at places of the reader's choice.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>

#include "platform/export.h"

namespace platform {

// Owner of an open file. Reading at a place leaves the file's own position alone, so several threads may read
// from one object.
class MORROW_PLATFORM_API File {
public:
    // Takes ownership of a descriptor.
    explicit File(int descriptor) noexcept : m_descriptor(descriptor) {}
    File(File&& other) noexcept;
    File(const File&) = delete;
    File& operator=(const File&) = delete;
    File& operator=(File&&) = delete;
    ~File();

    // Nothing, with the last error set, for what cannot be opened. Never waits for a pipe's other end.
    static std::optional<File> OpenForReading(const std::string& path);

    // The position and the size in bytes; nothing for what has none, as a pipe.
    [[nodiscard]] std::optional<std::uint64_t> Position() const noexcept;
    [[nodiscard]] std::optional<std::uint64_t> Size() const noexcept;
    // Fills `bytes` from `position` on. The count is less than asked for at the end of the file alone;
    // nothing, with the last error set, for a failure.
    [[nodiscard]] std::optional<std::size_t> ReadAt(std::uint64_t position,
                                                    std::span<std::uint8_t> bytes) const noexcept;

private:
    int m_descriptor;
};

} // namespace platform
