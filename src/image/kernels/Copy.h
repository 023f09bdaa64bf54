// Bytes and planes.
#pragma once

#include "image/kernels/Status.h"

// nLength bytes; source and destination do not overlap.
IppStatus ippsCopy_8u(const std::uint8_t* pSrc, std::uint8_t* pDst, std::int32_t nLength);
IppStatus ippsZero_8u(std::uint8_t* pDst, std::int32_t nLength);

// One plane; strides in bytes. Rows that lie end to end on both sides are copied as one long row.
IppStatus ippiCopy_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize);
