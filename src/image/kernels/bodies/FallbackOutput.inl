// The fallback engine's way from samples to pixels. Plain loops: three-byte pixels leave little to vectors,
// and the streams that come this way are few.
#pragma once

#include "image/kernels/FallbackOutput.h"

namespace KERNEL_TARGET {
namespace {

inline std::uint8_t ClampByte(std::int32_t n) {
    return static_cast<std::uint8_t>(n < 0 ? 0 : n > 255 ? 255 : n);
}

// A product in 32 bits that wraps: the samples of a damaged stream may be anything.
inline std::int32_t WrapMultiply(std::int32_t nFactor, std::int32_t nSample) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(nFactor) *
                                     static_cast<std::uint32_t>(nSample));
}

inline std::int32_t WrapAdd(std::int32_t a, std::int32_t b) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(a) + static_cast<std::uint32_t>(b));
}

// nH by nV blocks of Y. The chroma part of the formulas is worked out once a chroma sample and row.
template <int nH, int nV, bool bBlueFirst>
IppStatus ConvertMcu(const std::int16_t* const pYCbCr[3], std::uint8_t* pDst, std::int32_t nDstStep) {
    if (!pYCbCr || !pYCbCr[0] || !pYCbCr[1] || !pYCbCr[2] || !pDst)
        return ippStsNullPtrErr;
    if (nDstStep < 1)
        return ippStsStepErr;
    constexpr int kFirst = bBlueFirst ? 2 : 0; // offset of the red byte
    for (int y = 0; y < 8 * nV; ++y, pDst += nDstStep) {
        const std::int16_t* const pY = pYCbCr[0] + y / 8 * nH * 64 + y % 8 * 8;
        const std::int16_t* const pCb = pYCbCr[1] + y / nV * 8;
        const std::int16_t* const pCr = pYCbCr[2] + y / nV * 8;
        std::uint8_t* p = pDst;
        for (int i = 0; i < 8; ++i) {
            const std::int32_t nRed = WrapMultiply(91881, pCr[i]) >> 16;
            const std::int32_t nGreen =
                WrapAdd(WrapMultiply(-22554, pCb[i]), WrapMultiply(-46802, pCr[i])) >> 16;
            const std::int32_t nBlue = WrapMultiply(116130, pCb[i]) >> 16;
            for (int j = 0; j < nH; ++j, p += 3) {
                const int x = i * nH + j;
                const std::int32_t nY = pY[x / 8 * 64 + x % 8] + 128;
                p[kFirst] = ClampByte(nY + nRed);
                p[1] = ClampByte(nY + nGreen);
                p[2 - kFirst] = ClampByte(nY + nBlue);
            }
        }
    }
    return ippStsNoErr;
}

// The checks that all mirrors share, on pointers that are the same for the forms in place.
IppStatus CheckMirror(const std::uint8_t* pSrc, std::int32_t nSrcStep, const std::uint8_t* pDst,
                      std::int32_t nDstStep, IppiSize roiSize, std::int32_t nAxis) {
    if (!pSrc || !pDst)
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || nDstStep < 1)
        return ippStsStepErr;
    if (nAxis != ippAxisTopToBottom && nAxis != ippAxisLeftToRight && nAxis != ippAxisBoth)
        return ippStsMirrorAxisErr;
    return ippStsNoErr;
}

template <int nChannels>
IppStatus Mirror(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
                 IppiSize roiSize, std::int32_t nAxis) {
    if (const IppStatus nStatus = CheckMirror(pSrc, nSrcStep, pDst, nDstStep, roiSize, nAxis))
        return nStatus;
    const auto nRowBytes = static_cast<std::ptrdiff_t>(roiSize.width) * nChannels;
    for (std::int32_t y = 0; y < roiSize.height; ++y, pSrc += nSrcStep) {
        const std::int32_t nToRow = nAxis == ippAxisLeftToRight ? y : roiSize.height - 1 - y;
        std::uint8_t* p = pDst + std::ptrdiff_t{nToRow} * nDstStep;
        if (nAxis == ippAxisTopToBottom) {
            std::memcpy(p, pSrc, static_cast<std::size_t>(nRowBytes));
            continue;
        }
        for (const std::uint8_t* pFrom = pSrc + nRowBytes; pFrom != pSrc; p += nChannels) {
            pFrom -= nChannels;
            std::memcpy(p, pFrom, nChannels);
        }
    }
    return ippStsNoErr;
}

template <int nChannels>
IppStatus MirrorInPlace(std::uint8_t* pSrcDst, std::int32_t nStep, IppiSize roiSize, std::int32_t nAxis) {
    if (const IppStatus nStatus = CheckMirror(pSrcDst, nStep, pSrcDst, nStep, roiSize, nAxis))
        return nStatus;
    const auto nRowBytes = static_cast<std::ptrdiff_t>(roiSize.width) * nChannels;
    if (nAxis != ippAxisLeftToRight) {
        std::uint8_t* pLow = pSrcDst;
        std::uint8_t* pHigh = pSrcDst + std::ptrdiff_t{roiSize.height - 1} * nStep;
        for (; pLow < pHigh; pLow += nStep, pHigh -= nStep)
            std::swap_ranges(pLow, pLow + nRowBytes, pHigh);
    }
    if (nAxis != ippAxisTopToBottom) {
        for (std::int32_t y = 0; y < roiSize.height; ++y) {
            std::uint8_t* pLeft = pSrcDst + std::ptrdiff_t{y} * nStep;
            std::uint8_t* pRight = pLeft + nRowBytes - nChannels;
            for (; pLeft < pRight; pLeft += nChannels, pRight -= nChannels)
                std::swap_ranges(pLeft, pLeft + nChannels, pRight);
        }
    }
    return ippStsNoErr;
}

} // namespace

IppStatus ippiYCbCr444ToBGRLS_MCU_16s8u_P3C3R(const std::int16_t* const pYCbCr[3], std::uint8_t* pDst,
                                              std::int32_t nDstStep) {
    return ConvertMcu<1, 1, true>(pYCbCr, pDst, nDstStep);
}

IppStatus ippiYCbCr422ToBGRLS_MCU_16s8u_P3C3R(const std::int16_t* const pYCbCr[3], std::uint8_t* pDst,
                                              std::int32_t nDstStep) {
    return ConvertMcu<2, 1, true>(pYCbCr, pDst, nDstStep);
}

IppStatus ippiYCbCr420ToBGRLS_MCU_16s8u_P3C3R(const std::int16_t* const pYCbCr[3], std::uint8_t* pDst,
                                              std::int32_t nDstStep) {
    return ConvertMcu<2, 2, true>(pYCbCr, pDst, nDstStep);
}

IppStatus ippiYCbCr444ToRGBLS_MCU_16s8u_P3C3R(const std::int16_t* const pYCbCr[3], std::uint8_t* pDst,
                                              std::int32_t nDstStep) {
    return ConvertMcu<1, 1, false>(pYCbCr, pDst, nDstStep);
}

IppStatus ippiYCbCr422ToRGBLS_MCU_16s8u_P3C3R(const std::int16_t* const pYCbCr[3], std::uint8_t* pDst,
                                              std::int32_t nDstStep) {
    return ConvertMcu<2, 1, false>(pYCbCr, pDst, nDstStep);
}

IppStatus ippiYCbCr420ToRGBLS_MCU_16s8u_P3C3R(const std::int16_t* const pYCbCr[3], std::uint8_t* pDst,
                                              std::int32_t nDstStep) {
    return ConvertMcu<2, 2, false>(pYCbCr, pDst, nDstStep);
}

IppStatus ippiAdd128_JPEG_16s8u_C1R(const std::int16_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                                    std::int32_t nDstStep, IppiSize roiSize) {
    if (!pSrc || !pDst)
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || nDstStep < 1)
        return ippStsStepErr;
    const auto* pRow = reinterpret_cast<const std::uint8_t*>(pSrc);
    for (std::int32_t y = 0; y < roiSize.height; ++y, pRow += nSrcStep, pDst += nDstStep) {
        for (std::int32_t x = 0; x < roiSize.width; ++x) {
            std::int16_t nSample; // copied out: a stride in bytes need not be even
            std::memcpy(&nSample, pRow + std::ptrdiff_t{x} * 2, sizeof nSample);
            pDst[x] = ClampByte(nSample + 128);
        }
    }
    return ippStsNoErr;
}

IppStatus ippiMirror_8u_C3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize, std::int32_t nAxis) {
    return Mirror<3>(pSrc, nSrcStep, pDst, nDstStep, roiSize, nAxis);
}

IppStatus ippiMirror_8u_C4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize, std::int32_t nAxis) {
    return Mirror<4>(pSrc, nSrcStep, pDst, nDstStep, roiSize, nAxis);
}

IppStatus ippiMirror_8u_C3IR(std::uint8_t* pSrcDst, std::int32_t nStep, IppiSize roiSize,
                             std::int32_t nAxis) {
    return MirrorInPlace<3>(pSrcDst, nStep, roiSize, nAxis);
}

IppStatus ippiMirror_8u_C4IR(std::uint8_t* pSrcDst, std::int32_t nStep, IppiSize roiSize,
                             std::int32_t nAxis) {
    return MirrorInPlace<4>(pSrcDst, nStep, roiSize, nAxis);
}

} // namespace KERNEL_TARGET
