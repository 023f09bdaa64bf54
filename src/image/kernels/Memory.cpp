#include "image/kernels/Memory.h"

#include <cstdlib>
#include <cstring>
#include <limits>

namespace {

// In front of the block: up to 31 bytes to align it, and 8 for the heap's own pointer.
constexpr std::int64_t kOverhead = 40;
static_assert(kOverhead >= static_cast<std::int64_t>(ippAlignment - 1 + sizeof(void*)));

} // namespace

void* ippAlignPtr(void* p, std::size_t nAlignment) noexcept {
    const auto nAddress = reinterpret_cast<std::uintptr_t>(p);
    const std::uintptr_t nUp = (nAlignment - nAddress % nAlignment) % nAlignment;
    return static_cast<char*>(p) + nUp;
}

void* ippMalloc(std::int64_t nBytes) noexcept {
    if (nBytes < 1 || nBytes > std::numeric_limits<std::int64_t>::max() - kOverhead)
        return nullptr;
    void* const pHeap = std::malloc(static_cast<std::size_t>(nBytes + kOverhead));
    if (!pHeap)
        return nullptr;
    char* const pBlock =
        static_cast<char*>(ippAlignPtr(static_cast<char*>(pHeap) + sizeof pHeap, ippAlignment));
    std::memcpy(pBlock - sizeof pHeap, &pHeap, sizeof pHeap);
    return pBlock;
}

void ippFree(void* pBlock) noexcept {
    if (!pBlock)
        return;
    void* pHeap = nullptr;
    std::memcpy(&pHeap, static_cast<char*>(pBlock) - sizeof pHeap, sizeof pHeap);
    std::free(pHeap);
}
