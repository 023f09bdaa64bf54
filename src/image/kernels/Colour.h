// Colour models, and planes against interleaved samples. Strides in bytes; all planes of a picture share one.
#pragma once

#include "image/kernels/Status.h"

// From interleaved pixels to planes of luma and chroma. All integer, with 16 fractional bits (the matrix of
// JFIF, that is of ITU-R BT.601 at full range):
//   Y  = ( 19595 R + 38470 G +  7471 B +   32768) >> 16
//   Cb = (-11059 R - 21709 G + 32768 B + 8421375) >> 16
//   Cr = ( 32768 R - 27439 G -  5329 B + 8421375) >> 16
IppStatus ippiRGBToY_JPEG_8u_C3C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                                   std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiRGBToYCbCr_JPEG_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiBGRToYCbCr_JPEG_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize);

// The above on the complements of C, M and Y; K passes through.
IppStatus ippiCMYKToYCCK_JPEG_8u_C4P4R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize);

// From the colour model of JFIF back to pixels. apSrc: the planes Y, Cb, Cr and, where there are four, K.
//
//   R = Y + 1.402 (Cr-128),  G = Y - 0.34414 (Cb-128) - 0.71414 (Cr-128),  B = Y + 1.772 (Cb-128)
//
// with factors of 16 fractional bits. What is added for R and for B is rounded to a whole number, what is
// subtracted for G after both terms are summed; each result is clamped to 0..255.
IppStatus ippiYCbCrToRGB_JPEG_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiYCbCrToBGR_JPEG_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize);

// C, M and Y are the complements of R, G and B; K passes through.
IppStatus ippiYCCKToCMYK_JPEG_8u_P4C4R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize);

// From pixels of three bytes to the planes of a frame.
//
// Y at full size, U and V at half width and half height, into the planes that pDst lists in that order.
// Strides in bytes. The picture is walked in blocks of two by two pixels (a, b, c in memory order: red,
// green, blue for planes that deserve their names); an odd last column or row is left out, which
// ippStsOddSize tells. With N = 19595 a + 38470 b + 7471 c of a pixel, and the sums S, Sa and Sc of N, a and
// c over a block:
//   Y = N >> 16, not rounded
//   U = ((((Sc << 16) - S + 0x1FFFF) >> 16) * 32244 >> 18) + 128, its low eight bits
//   V = ((((Sa << 16) - S + 0x1FFFF) >> 16) * 57475 >> 18) + 128, clamped to 0..255
IppStatus ippiRGBToYUV420_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                   std::uint8_t* const pDst[3], const std::int32_t aDstStep[3],
                                   IppiSize roiSize);

// Planes into interleaved samples, three or four of them, which may be the same one, and back. Rows that lie
// end to end on both sides are done as one long row.
IppStatus ippiCopy_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiCopy_8u_P4C4R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiCopy_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst,
                            std::int32_t nDstStep, IppiSize roiSize);
IppStatus ippiCopy_8u_C4P4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst,
                            std::int32_t nDstStep, IppiSize roiSize);

// The list of the family (Kernels.h): names and numbers of arguments.
#define COLOUR_KERNELS(KERNEL)                                                                               \
    KERNEL(ippiRGBToY_JPEG_8u_C3C1R, 5)                                                                      \
    KERNEL(ippiRGBToYCbCr_JPEG_8u_C3P3R, 5)                                                                  \
    KERNEL(ippiBGRToYCbCr_JPEG_8u_C3P3R, 5)                                                                  \
    KERNEL(ippiCMYKToYCCK_JPEG_8u_C4P4R, 5)                                                                  \
    KERNEL(ippiYCbCrToRGB_JPEG_8u_P3C3R, 5)                                                                  \
    KERNEL(ippiYCbCrToBGR_JPEG_8u_P3C3R, 5)                                                                  \
    KERNEL(ippiYCCKToCMYK_JPEG_8u_P4C4R, 5)                                                                  \
    KERNEL(ippiRGBToYUV420_8u_C3P3R, 5)                                                                      \
    KERNEL(ippiCopy_8u_P3C3R, 5)                                                                             \
    KERNEL(ippiCopy_8u_P4C4R, 5)                                                                             \
    KERNEL(ippiCopy_8u_C3P3R, 5)                                                                             \
    KERNEL(ippiCopy_8u_C4P4R, 5)
