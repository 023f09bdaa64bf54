#include "image/CodecParts.h"

#include "image/ImageCodec.h"
#include "image/kernels/Cells.h"

#include <algorithm>
#include <array>

namespace {

constexpr std::int32_t kMostCells = 256;    // in a row or column
constexpr std::int32_t kLongestCell = 2048; // its width or height
constexpr std::int32_t kMostBandRows = 257; // of one call of the kernel
constexpr std::int32_t kMostColumns = 4096; // of the same; a cell at least

// Where cell n of nCells begins: each has as many samples as the others, or one more.
std::int32_t EdgeOf(std::int32_t n, std::int32_t nSize, std::int32_t nCells) {
    return static_cast<std::int32_t>(std::int64_t{n} * nSize / nCells);
}

bool Fits(std::int32_t nSize, std::int32_t nCells) {
    return nCells >= 1 && nCells <= kMostCells && nSize >= nCells && (nSize - 1) / nCells < kLongestCell;
}

// One row of cells, in as many parts as the sums of their columns need.
IppStatus SumRow(const std::uint8_t* pY, std::int32_t nStep, std::int32_t nHeight, const std::int32_t* pEdges,
                 std::int32_t nCells, std::uint32_t* pSums) {
    std::array<std::uint16_t, kMostColumns> columns;
    std::array<std::int32_t, kMostCells + 1> edges;
    for (std::int32_t nFirst = 0; nFirst < nCells;) {
        std::int32_t nCount = 0;
        edges[0] = 0;
        while (nFirst + nCount < nCells && pEdges[nFirst + nCount + 1] - pEdges[nFirst] <= kMostColumns) {
            ++nCount;
            edges[static_cast<std::size_t>(nCount)] = pEdges[nFirst + nCount] - pEdges[nFirst];
        }
        for (std::int32_t y = 0; y < nHeight; y += kMostBandRows) {
            const IppStatus nStatus = ippxCellSums_8u32u_C1R(
                pY + std::ptrdiff_t{y} * nStep + pEdges[nFirst], nStep,
                {edges[static_cast<std::size_t>(nCount)], std::min(nHeight - y, kMostBandRows)}, edges.data(),
                nCount, columns.data(), pSums + nFirst);
            if (nStatus != ippStsNoErr)
                return nStatus;
        }
        nFirst += nCount;
    }
    return ippStsNoErr;
}

} // namespace

std::int32_t CellMeans(const std::uint8_t* pY, std::int32_t nWidth, std::int32_t nHeight, std::int32_t nYStep,
                       std::int32_t nColumns, std::int32_t nRows, std::uint16_t* pMeans) noexcept {
    if (!pY || !pMeans || !Fits(nWidth, nColumns) || !Fits(nHeight, nRows))
        return ImageBadGrid;
    if (nYStep < nWidth)
        return ImageBadStride;
    std::array<std::int32_t, kMostCells + 1> edges;
    for (std::int32_t c = 0; c <= nColumns; ++c)
        edges[static_cast<std::size_t>(c)] = EdgeOf(c, nWidth, nColumns);
    // A multiplication each is a fraction of a division's time.
    std::array<float, kMostCells> parts;
    for (std::size_t c = 0; c < static_cast<std::size_t>(nColumns); ++c)
        parts[c] = 256.0F / static_cast<float>(edges[c + 1] - edges[c]);
    std::array<std::uint32_t, kMostCells> sums;
    for (std::int32_t r = 0; r < nRows; ++r, pMeans += nColumns) {
        const std::int32_t nTop = EdgeOf(r, nHeight, nRows);
        const std::int32_t nCellHeight = EdgeOf(r + 1, nHeight, nRows) - nTop;
        std::fill_n(sums.begin(), nColumns, 0U);
        if (SumRow(pY + std::ptrdiff_t{nTop} * nYStep, nYStep, nCellHeight, edges.data(), nColumns,
                   sums.data()) != ippStsNoErr)
            return ImageBadGrid;
        const float part = 1.0F / static_cast<float>(nCellHeight);
        for (std::size_t c = 0; c < static_cast<std::size_t>(nColumns); ++c) {
            const auto sum = static_cast<float>(static_cast<std::int32_t>(sums[c])); // below 2^31
            // Never negative. NOLINTNEXTLINE(bugprone-incorrect-roundings)
            pMeans[c] = static_cast<std::uint16_t>(static_cast<std::int32_t>(sum * parts[c] * part + 0.5F));
        }
    }
    return ImageOk;
}
