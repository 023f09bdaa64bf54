// Changing the protection of memory.
#pragma once

#include <cstddef>
#include <cstdint>
#include <span>

#include "platform/export.h"

namespace platform {

// Makes memory readable and writable for the life of the object, then restores the protection that its pages
// had. The pages of a file are mapped privately, so what is written into them is seen by this process alone.
// Only one thread at a time for each page.
class MORROW_PLATFORM_API WritableMemory {
public:
    explicit WritableMemory(std::span<const std::uint8_t> bytes) noexcept;
    WritableMemory(const WritableMemory&) = delete;
    WritableMemory& operator=(const WritableMemory&) = delete;
    ~WritableMemory();

    // The bytes to write into; empty, with the last error set at creation, when the pages cannot be made
    // writable.
    [[nodiscard]] std::span<std::uint8_t> Bytes() const noexcept { return m_bytes; }

private:
    std::span<std::uint8_t> m_bytes;
    void* m_page = nullptr;
    std::size_t m_length = 0;
    int m_protection = 0; // before, in the system's bits
};

// A pointer that is kept for long, in a form from which nobody makes a pointer to something else: mixed with
// a number that is drawn anew for each process. Null has such a form as well.
MORROW_PLATFORM_API std::uintptr_t EncodePointer(const void* pointer) noexcept;
MORROW_PLATFORM_API void* DecodePointer(std::uintptr_t encoded) noexcept;

} // namespace platform
