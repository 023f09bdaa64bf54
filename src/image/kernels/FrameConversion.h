// From pixels of three bytes to the planes of a frame.
#pragma once

#include "image/kernels/Status.h"

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
