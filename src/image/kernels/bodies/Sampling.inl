// Resampling by two.
#pragma once

#include "image/kernels/Sampling.h"

namespace KERNEL_TARGET {
namespace {

IppStatus CheckSampling(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                        std::int32_t nSrcLeast, const std::uint8_t* pDst, std::int32_t nDstStep,
                        IppiSize dstRoi) {
    if (!pSrc || !pDst)
        return ippStsNullPtrErr;
    if (srcRoi.width < nSrcLeast || srcRoi.height < nSrcLeast || dstRoi.width < 1 || dstRoi.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || nDstStep < 1)
        return ippStsStepErr;
    return ippStsNoErr;
}

// Two samples by one load, which vectors of 16 bits take without a shuffle.
inline std::uint16_t PairSum(const std::uint8_t* p) {
    std::uint16_t nPair;
    std::memcpy(&nPair, p, sizeof nPair);
    return static_cast<std::uint16_t>((nPair & 0xFF) + (nPair >> 8));
}

// The sum of the two samples that a triangular filter makes of one and those beside it.
inline std::uint16_t DoubledSum(const std::uint8_t* p) {
    const int nMiddle = 3 * p[0];
    return static_cast<std::uint16_t>(((nMiddle + p[-1] + 1) >> 2) + ((nMiddle + p[1] + 2) >> 2));
}

} // namespace

IppStatus ippiSampleUpH2V1_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi) {
    if (const IppStatus nStatus = CheckSampling(pSrc, nSrcStep, srcRoi, 1, pDst, nDstStep, dstRoi))
        return nStatus;
    const std::int32_t nPairs = dstRoi.width / 2;
    for (std::int32_t y = 0; y < dstRoi.height; ++y, pSrc += nSrcStep, pDst += nDstStep) {
        for (std::int32_t i = 0; i < nPairs; ++i) {
            pDst[2 * i] = static_cast<std::uint8_t>((3 * pSrc[i] + pSrc[i - 1] + 1) >> 2);
            pDst[2 * i + 1] = static_cast<std::uint8_t>((3 * pSrc[i] + pSrc[i + 1] + 2) >> 2);
        }
        if (dstRoi.width % 2 != 0)
            pDst[2 * nPairs] = static_cast<std::uint8_t>((3 * pSrc[nPairs] + pSrc[nPairs - 1] + 1) >> 2);
    }
    return ippStsNoErr;
}

IppStatus ippiSampleDownH2V2_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                         std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi) {
    if (const IppStatus nStatus = CheckSampling(pSrc, nSrcStep, srcRoi, 2, pDst, nDstStep, dstRoi))
        return nStatus;
    for (std::int32_t y = 0; y < dstRoi.height; ++y, pSrc += 2 * std::ptrdiff_t{nSrcStep}, pDst += nDstStep) {
        const std::uint8_t* const pNext = pSrc + nSrcStep;
        for (std::int32_t i = 0; i < dstRoi.width; ++i)
            pDst[i] = static_cast<std::uint8_t>((PairSum(pSrc + 2 * i) + PairSum(pNext + 2 * i) + 3) >> 2);
    }
    return ippStsNoErr;
}

IppStatus ippiSampleDownH2V1_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                         std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi) {
    const IppiSize pairs{srcRoi.width, srcRoi.height < 1 ? srcRoi.height : 2}; // one row is enough
    if (const IppStatus nStatus = CheckSampling(pSrc, nSrcStep, pairs, 2, pDst, nDstStep, dstRoi))
        return nStatus;
    for (std::int32_t y = 0; y < dstRoi.height; ++y, pSrc += nSrcStep, pDst += nDstStep) {
        for (std::int32_t i = 0; i < dstRoi.width; ++i)
            pDst[i] = static_cast<std::uint8_t>((pSrc[2 * i] + pSrc[2 * i + 1] + 1) >> 1);
    }
    return ippStsNoErr;
}

IppStatus ippxSample422To420_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                                    std::int32_t nDstStep, IppiSize dstRoi) {
    const IppiSize any{1, 1};
    if (const IppStatus nStatus = CheckSampling(pSrc, nSrcStep, any, 1, pDst, nDstStep, dstRoi))
        return nStatus;
    for (std::int32_t y = 0; y < dstRoi.height; ++y, pSrc += 2 * std::ptrdiff_t{nSrcStep}, pDst += nDstStep) {
        const std::uint8_t* const pNext = pSrc + nSrcStep;
        for (std::int32_t i = 0; i < dstRoi.width; ++i)
            pDst[i] = static_cast<std::uint8_t>((DoubledSum(pSrc + i) + DoubledSum(pNext + i) + 3) >> 2);
    }
    return ippStsNoErr;
}

// near is the source row that an output row lies in, far the next one on its side.
IppStatus ippiSampleUpH2V2_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi) {
    if (const IppStatus nStatus = CheckSampling(pSrc, nSrcStep, srcRoi, 1, pDst, nDstStep, dstRoi))
        return nStatus;
    for (std::int32_t y = 0; y < dstRoi.height; ++y, pDst += nDstStep) {
        const std::uint8_t* const pNear = pSrc + std::ptrdiff_t{y >> 1} * nSrcStep;
        const std::uint8_t* const pFar = y % 2 == 0 ? pNear - nSrcStep : pNear + nSrcStep;
        const auto column = [=](std::int32_t i) { return 3 * pNear[i] + pFar[i]; };
        for (std::int32_t i = 0; 2 * i < dstRoi.width; ++i) {
            pDst[2 * i] = static_cast<std::uint8_t>((3 * column(i) + column(i - 1) + 8) >> 4);
            if (2 * i + 1 < dstRoi.width)
                pDst[2 * i + 1] = static_cast<std::uint8_t>((3 * column(i) + column(i + 1) + 7) >> 4);
        }
    }
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
