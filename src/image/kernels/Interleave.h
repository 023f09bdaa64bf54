// Planes into interleaved samples, and copies of interleaved pictures. Strides in bytes; planes share one.
// Rows that lie end to end on both sides are done as one long row.
#pragma once

#include "image/kernels/Status.h"

IppStatus ippiCopy_8u_C3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiCopy_8u_C4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize);

// apSrc: three or four planes, which may be the same one.
IppStatus ippiCopy_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiCopy_8u_P4C4R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize);
