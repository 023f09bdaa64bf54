// From the colour model of JFIF back to pixels. apSrc: the planes Y, Cb, Cr and, where there are four, K.
//
//   R = Y + 1.402 (Cr-128),  G = Y - 0.34414 (Cb-128) - 0.71414 (Cr-128),  B = Y + 1.772 (Cb-128)
//
// with factors of 16 fractional bits. What is added for R and for B is rounded to a whole number, what is
// subtracted for G after both terms are summed; each result is clamped to 0..255.
#pragma once

#include "image/kernels/Status.h"

IppStatus ippiYCbCrToRGB_JPEG_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiYCbCrToBGR_JPEG_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize);

// C, M and Y are the complements of R, G and B; K passes through.
IppStatus ippiYCCKToCMYK_JPEG_8u_P4C4R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize);
