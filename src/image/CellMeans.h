// A picture from afar: the means of the cells of a grid (ImageCodec.h).
#pragma once

#include <cstdint>

// MeanOfCells, once the kernels are started.
[[nodiscard]] std::int32_t CellMeans(const std::uint8_t* pY, std::int32_t nWidth, std::int32_t nHeight,
                                     std::int32_t nYStep, std::int32_t nColumns, std::int32_t nRows,
                                     std::uint16_t* pMeans) noexcept;
