#include "image/kernels/Memory.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include <sys/mman.h>

namespace {

// In front of the block: up to 31 bytes to align it, and 8 for the heap's own pointer.
constexpr std::int64_t kOverhead = 40;
static_assert(kOverhead >= static_cast<std::int64_t>(ippAlignment - 1 + sizeof(void*)));

constexpr std::int64_t kLargePage = std::int64_t{2} << 20;

} // namespace

void* ippAlignPtr(void* p, std::size_t nAlignment) noexcept {
    const auto nAddress = reinterpret_cast<std::uintptr_t>(p);
    const std::uintptr_t nUp = (nAlignment - nAddress % nAlignment) % nAlignment;
    return static_cast<char*>(p) + nUp;
}

void ippAdviseLargePages(void* pBlock, std::int64_t nBytes) noexcept {
    if (!pBlock || nBytes < kLargePage)
        return;
    // Whole small pages inside the block: no others are the block's alone.
    constexpr std::int64_t kSmallPage = 4096;
    auto* const pFirst = static_cast<char*>(ippAlignPtr(pBlock, kSmallPage));
    const std::int64_t nInside = static_cast<char*>(pBlock) + nBytes - pFirst;
    // An advice: without it the block is as good as before.
    static_cast<void>(
        ::madvise(pFirst, static_cast<std::size_t>(nInside / kSmallPage * kSmallPage), MADV_HUGEPAGE));
}

void* ippMalloc(std::int64_t nBytes) noexcept {
    if (nBytes < 1 || nBytes > std::numeric_limits<std::int64_t>::max() - kOverhead)
        return nullptr;
    void* const pHeap = std::malloc(static_cast<std::size_t>(nBytes + kOverhead));
    if (!pHeap)
        return nullptr;
    ippAdviseLargePages(pHeap, nBytes + kOverhead);
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

IppStatus ippsCopy_8u(const std::uint8_t* pSrc, std::uint8_t* pDst, std::int32_t nLength) {
    if (!pSrc || !pDst)
        return ippStsNullPtrErr;
    if (nLength < 1)
        return ippStsSizeErr;
    std::memcpy(pDst, pSrc, static_cast<std::size_t>(nLength));
    return ippStsNoErr;
}

IppStatus ippsZero_8u(std::uint8_t* pDst, std::int32_t nLength) {
    if (!pDst)
        return ippStsNullPtrErr;
    if (nLength < 1)
        return ippStsSizeErr;
    std::memset(pDst, 0, static_cast<std::size_t>(nLength));
    return ippStsNoErr;
}

IppStatus ippiCopy_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize) {
    if (!pSrc || !pDst)
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || nDstStep < 1)
        return ippStsStepErr;
    const auto nWidth = static_cast<std::size_t>(roiSize.width);
    if (nSrcStep == roiSize.width && nDstStep == roiSize.width) {
        std::memcpy(pDst, pSrc, nWidth * static_cast<std::size_t>(roiSize.height));
        return ippStsNoErr;
    }
    for (std::int32_t y = 0; y < roiSize.height; ++y, pSrc += nSrcStep, pDst += nDstStep)
        std::memcpy(pDst, pSrc, nWidth);
    return ippStsNoErr;
}

namespace {

// A picture of interleaved samples is a plane of that many times the width.
template <int nChannels>
IppStatus CopyPixels(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                     std::int32_t nDstStep, IppiSize roiSize) {
    if (roiSize.width > INT32_MAX / nChannels)
        return ippStsSizeErr;
    return ippiCopy_8u_C1R(pSrc, nSrcStep, pDst, nDstStep, {roiSize.width * nChannels, roiSize.height});
}

} // namespace

IppStatus ippiCopy_8u_C3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize) {
    return CopyPixels<3>(pSrc, nSrcStep, pDst, nDstStep, roiSize);
}

IppStatus ippiCopy_8u_C4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize) {
    return CopyPixels<4>(pSrc, nSrcStep, pDst, nDstStep, roiSize);
}
