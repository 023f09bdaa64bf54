// Sums over the cells of a grid that lies over a plane.
#pragma once

#include "image/kernels/Status.h"

// A band of rows: adds to nSums[c] the sum of the samples in the columns pEdges[c] to pEdges[c+1]-1 of all
// its rows, for the cells c of 0 to nCells-1. Edges ascend, and lie within 0 and the width. pColumns is room
// for as many numbers as the area is wide. No more than 257 rows, whose sum fits 16 bits. nSrcStep in bytes.
IppStatus ippxCellSums_8u32u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize roi,
                                 const std::int32_t* pEdges, std::int32_t nCells, std::uint16_t* pColumns,
                                 std::uint32_t* pSums);

// The list of the family (Kernels.h): names and numbers of arguments.
#define CELL_KERNELS(KERNEL) KERNEL(ippxCellSums_8u32u_C1R, 7)
