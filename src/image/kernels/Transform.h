// The block transforms (T.81 A.3.3) together with the work around them.
#pragma once

#include "image/kernels/Status.h"

// One block from coefficients to samples: each coefficient is multiplied by its quantiser step, saturating to
// 16 bits, then come the inverse DCT, the level shift of 128 and the clamp to 0..255. Coefficients and steps
// in natural order; pSrc and pTable may lie anywhere, 32-byte alignment is fastest; nDstStep in bytes.
//
// The transform is separable, works with 12 fractional bits and keeps 3 of them between its two passes, where
// values saturate to 16 bits. A peak error of 1 against the exact transform.
IppStatus ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(const std::int16_t* pSrc, std::uint8_t* pDst,
                                              std::int32_t nDstStep, const std::uint16_t* pTable);

// The same transform up to the level shift: 64 samples that are neither shifted back nor clamped, row after
// row. The fallback engine converts colours from such samples.
IppStatus ippxInverseBlock_16s(const std::int16_t* pSrc, std::int16_t* pDst, const std::uint16_t* pTable);

// One block from samples to quantised coefficients in natural order: level shift by 128, forward DCT, then
// each coefficient times its factor of pTable (ippiQuantFwdTableInit_JPEG_8u16u) shifted right by 15, rounded
// to nearest with ties to even. No factor is above 32768. nSrcStep in bytes.
//
// The transform is separable and rounds the coefficients to whole numbers before the quantiser: a peak error
// of 1 against the exact transform. No block of samples leaves the 16 bits, so that nothing ever saturates.
IppStatus ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                              std::int16_t* pDst, const std::uint16_t* pTable);

// The list of the family (Kernels.h): names and numbers of arguments.
#define TRANSFORM_KERNELS(KERNEL)                                                                            \
    KERNEL(ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R, 4)                                                           \
    KERNEL(ippxInverseBlock_16s, 3)                                                                          \
    KERNEL(ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R, 4)
