// Memory for the kernels, in blocks of the process heap whose address is a multiple of 32, the width of the
// widest vectors in use, and copies of it. Nothing here has variants: the C++ library's own copies are as
// fast as the processor at hand allows.
#pragma once

#include "image/kernels/Status.h"

#include <cstddef>
#include <cstdint>
#include <memory>

// Alignment of every block, in bytes.
inline constexpr std::size_t ippAlignment = 32;

// nBytes of uninitialised memory, or null: for a count below 1 and when the heap has no more. The caller
// frees the block with ippFree. The heap's own pointer stands in the 8 bytes below the block.
[[nodiscard]] void* ippMalloc(std::int64_t nBytes) noexcept;

// Frees a block of ippMalloc; does nothing for null.
void ippFree(void* pBlock) noexcept;

// What the functions do that free an object of the kernels: ippStsNullPtrErr for null.
inline IppStatus ippRelease(void* pBlock) noexcept {
    ippFree(pBlock);
    return pBlock ? ippStsNoErr : ippStsNullPtrErr;
}

// Asks the system for large pages behind a fresh block, from any heap. A picture of some megapixels is
// thousands of small pages, and their first touch can cost several times what the work on their samples does.
// Blocks below 2 MiB stay as they are, and so do all where the system has no large pages.
void ippAdviseLargePages(void* pBlock, std::int64_t nBytes) noexcept;

// The first multiple of nAlignment, a power of two, at or behind p.
[[nodiscard]] void* ippAlignPtr(void* p, std::size_t nAlignment) noexcept;

struct IppFreeDeleter {
    void operator()(void* pBlock) const noexcept { ippFree(pBlock); }
};

// Owner of an array of plain values in a block of ippMalloc.
template <typename T>
using IppBuffer = std::unique_ptr<T[], IppFreeDeleter>;

// Room for nCount values, uninitialised, or an empty owner.
template <typename T>
[[nodiscard]] IppBuffer<T> IppAllocate(std::int64_t nCount) noexcept {
    return IppBuffer<T>(static_cast<T*>(ippMalloc(nCount * static_cast<std::int64_t>(sizeof(T)))));
}

// nLength bytes; source and destination do not overlap.
IppStatus ippsCopy_8u(const std::uint8_t* pSrc, std::uint8_t* pDst, std::int32_t nLength);
IppStatus ippsZero_8u(std::uint8_t* pDst, std::int32_t nLength);

// One plane; strides in bytes. Rows that lie end to end on both sides are copied as one long row.
IppStatus ippiCopy_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize);

// Pictures of interleaved samples, likewise.
IppStatus ippiCopy_8u_C3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiCopy_8u_C4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize);
