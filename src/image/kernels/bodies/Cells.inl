// Sums over cells: first of each column, which is the most of the work and takes the width of a vector, then
// of the columns of each cell.
#pragma once

#include "image/kernels/Cells.h"

namespace KERNEL_TARGET {
namespace {

// Four by one load, as two sums of 32 bits in one number.
inline std::uint64_t PairsOfFour(const std::uint16_t* p) {
    constexpr std::uint64_t nEven = 0x0000'FFFF'0000'FFFF;
    std::uint64_t nFour;
    std::memcpy(&nFour, p, sizeof nFour);
    return (nFour & nEven) + (nFour >> 16 & nEven);
}

inline std::uint32_t SumOfColumns(const std::uint16_t* p, std::int32_t nCount) {
    std::uint64_t nPairs = 0;
    std::int32_t i = 0;
    for (; i + 4 <= nCount; i += 4)
        nPairs += PairsOfFour(p + i);
    auto nSum = static_cast<std::uint32_t>(nPairs) + static_cast<std::uint32_t>(nPairs >> 32);
    for (; i < nCount; ++i)
        nSum += p[i];
    return nSum;
}

// Whether all cells are four columns wide, as those of a picture of 320 in 80 are.
inline bool AreFourWide(const std::int32_t* pEdges, std::int32_t nCells) {
    std::int32_t nOdd = 0;
    for (std::int32_t c = 0; c < nCells; ++c)
        nOdd |= (pEdges[c + 1] - pEdges[c]) ^ 4;
    return nOdd == 0;
}

inline void AddRow(const std::uint8_t* __restrict pSrc, std::int32_t nWidth,
                   std::uint16_t* __restrict pColumns) {
    for (std::int32_t i = 0; i < nWidth; ++i)
        pColumns[i] = static_cast<std::uint16_t>(pColumns[i] + pSrc[i]);
}

// Four rows at once: the sums are read and written a quarter as often.
inline void AddFourRows(const std::uint8_t* __restrict p0, std::int32_t nStep, std::int32_t nWidth,
                        std::uint16_t* __restrict pColumns) {
    const std::uint8_t* const p1 = p0 + nStep;
    const std::uint8_t* const p2 = p1 + nStep;
    const std::uint8_t* const p3 = p2 + nStep;
    for (std::int32_t i = 0; i < nWidth; ++i)
        pColumns[i] = static_cast<std::uint16_t>(pColumns[i] + p0[i] + p1[i] + p2[i] + p3[i]);
}

} // namespace

IppStatus ippxCellSums_8u32u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize roi,
                                 const std::int32_t* pEdges, std::int32_t nCells, std::uint16_t* pColumns,
                                 std::uint32_t* pSums) {
    constexpr std::int32_t nMostRows = 257;
    if (!pSrc || !pEdges || !pColumns || !pSums)
        return ippStsNullPtrErr;
    if (roi.width < 1 || roi.height < 1 || roi.height > nMostRows || nCells < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1)
        return ippStsStepErr;
    std::memset(pColumns, 0, static_cast<std::size_t>(roi.width) * sizeof *pColumns);
    std::int32_t y = 0;
    for (; y + 4 <= roi.height; y += 4, pSrc += 4 * std::ptrdiff_t{nSrcStep})
        AddFourRows(pSrc, nSrcStep, roi.width, pColumns);
    for (; y < roi.height; ++y, pSrc += nSrcStep)
        AddRow(pSrc, roi.width, pColumns);
    if (AreFourWide(pEdges, nCells)) {
        const std::uint16_t* const pFirst = pColumns + pEdges[0];
        for (std::int32_t c = 0; c < nCells; ++c) {
            const std::uint64_t nPairs = PairsOfFour(pFirst + 4 * c);
            pSums[c] += static_cast<std::uint32_t>(nPairs) + static_cast<std::uint32_t>(nPairs >> 32);
        }
        return ippStsNoErr;
    }
    for (std::int32_t c = 0; c < nCells; ++c)
        pSums[c] += SumOfColumns(pColumns + pEdges[c], pEdges[c + 1] - pEdges[c]);
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
