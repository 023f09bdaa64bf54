// The forward block transform (T.81 A.3.3) together with the work around it.
#pragma once

#include "image/kernels/Status.h"

// One block from samples to quantised coefficients in natural order: level shift by 128, forward DCT, then
// each coefficient times its factor of pTable (ippiQuantFwdTableInit_JPEG_8u16u) shifted right by 15, rounded
// to nearest with ties to even. No factor is above 32768. nSrcStep in bytes.
//
// The transform is separable and rounds the coefficients to whole numbers before the quantiser: a peak error
// of 1 against the exact transform. No block of samples leaves the 16 bits, so that nothing ever saturates.
IppStatus ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                              std::int16_t* pDst, const std::uint16_t* pTable);
