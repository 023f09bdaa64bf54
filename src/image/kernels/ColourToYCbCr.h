// From interleaved pixels to planes of luma and chroma. All integer, with 16 fractional bits (the matrix of
// JFIF, that is of ITU-R BT.601 at full range):
//   Y  = ( 19595 R + 38470 G +  7471 B +   32768) >> 16
//   Cb = (-11059 R - 21709 G + 32768 B + 8421375) >> 16
//   Cr = ( 32768 R - 27439 G -  5329 B + 8421375) >> 16
// Strides in bytes; all planes of a picture share one.
#pragma once

#include "image/kernels/Status.h"

IppStatus ippiRGBToY_JPEG_8u_C3C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                                   std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiRGBToYCbCr_JPEG_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiBGRToYCbCr_JPEG_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize);

// The above on the complements of C, M and Y; K passes through.
IppStatus ippiCMYKToYCCK_JPEG_8u_C4P4R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize);
