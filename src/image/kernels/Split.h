// Interleaved samples into planes, one a channel; strides in bytes, one for all planes. Rows that lie end to
// end on both sides are done as one long row.
#pragma once

#include "image/kernels/Status.h"

IppStatus ippiCopy_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst,
                            std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiCopy_8u_C4P4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst,
                            std::int32_t nDstStep, IppiSize roiSize);
