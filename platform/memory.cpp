#include "platform/resources.h"

#include <sys/mman.h>
#include <unistd.h>

#include <cerrno>
#include <climits>
#include <cstdio>
#include <memory>
#include <optional>

namespace platform {

namespace {

// The protection of the pages from `begin` to before `end`, if one mapping holds them all. The system tells
// it in this file only: a line a mapping, "begin-end rwxp ... path".
std::optional<int> ProtectionOf(std::uintptr_t begin, std::uintptr_t end) noexcept {
    const std::unique_ptr<std::FILE, int (*)(std::FILE*)> maps(std::fopen("/proc/self/maps", "re"),
                                                               &std::fclose);
    char line[PATH_MAX + 128];
    while (maps != nullptr && std::fgets(line, sizeof line, maps.get()) != nullptr) {
        std::uintptr_t from = 0;
        std::uintptr_t to = 0;
        char bits[5] = {};
        if (std::sscanf(line, "%lx-%lx %4s", &from, &to, bits) == 3 && from <= begin && end <= to)
            return (bits[0] == 'r' ? PROT_READ : 0) | (bits[1] == 'w' ? PROT_WRITE : 0) |
                   (bits[2] == 'x' ? PROT_EXEC : 0);
    }
    return std::nullopt;
}

} // namespace

WritableMemory::WritableMemory(std::span<const std::uint8_t> bytes) noexcept {
    const auto page = static_cast<std::uintptr_t>(::sysconf(_SC_PAGESIZE));
    const auto address = reinterpret_cast<std::uintptr_t>(bytes.data());
    const std::uintptr_t begin = address - address % page;
    const std::uintptr_t end = (address + bytes.size() + page - 1) / page * page;
    const auto protection = bytes.empty() ? std::nullopt : ProtectionOf(begin, end);
    if (!protection) {
        SetLastError(kErrorInvalidAddress);
        return;
    }
    void* const first = reinterpret_cast<void*>(begin);
    if (::mprotect(first, end - begin, PROT_READ | PROT_WRITE) != 0) {
        SetLastError(ErrorFromErrno(errno));
        return;
    }
    m_page = first;
    m_length = end - begin;
    m_protection = *protection;
    m_bytes = {const_cast<std::uint8_t*>(bytes.data()), bytes.size()};
}

WritableMemory::~WritableMemory() {
    // Back to less than it has now cannot fail but for a lack of the system's own memory; then the pages stay
    // writable, which harms nothing.
    if (m_page != nullptr)
        (void)::mprotect(m_page, m_length, m_protection);
}

} // namespace platform
