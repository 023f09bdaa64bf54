// What the fallback engine makes pixels with: MCU colour kernels, the finish of grey blocks, and mirrors.
#pragma once

#include "image/kernels/Status.h"

// One MCU from YCbCr samples to pixels of three bytes, with chroma repeated over the pixels that it covers.
//
// pYCbCr leads to three arrays of level-shifted samples, each the component's blocks of one MCU in coding
// order, 64 samples a block: one block of Cb, one of Cr, and of Y one (444: 8x8 pixels), two (422: left,
// right; 16x8 pixels) or four (420: two above two; 16x16 pixels). nDstStep in bytes. With 16 fractional bits,
// all in 32 bits that wrap, shifts arithmetic, each result clamped to 0..255:
//   red   = Y + (91881 Cr >> 16) + 128
//   green = Y + ((-22554 Cb - 46802 Cr) >> 16) + 128
//   blue  = Y + (116130 Cb >> 16) + 128
// BGR puts the blue byte of a pixel first, RGB the red one.
using IppMcuToPixels = IppStatus(const std::int16_t* const pYCbCr[3], std::uint8_t* pDst,
                                 std::int32_t nDstStep);
IppMcuToPixels ippiYCbCr444ToBGRLS_MCU_16s8u_P3C3R;
IppMcuToPixels ippiYCbCr422ToBGRLS_MCU_16s8u_P3C3R;
IppMcuToPixels ippiYCbCr420ToBGRLS_MCU_16s8u_P3C3R;
IppMcuToPixels ippiYCbCr444ToRGBLS_MCU_16s8u_P3C3R;
IppMcuToPixels ippiYCbCr422ToRGBLS_MCU_16s8u_P3C3R;
IppMcuToPixels ippiYCbCr420ToRGBLS_MCU_16s8u_P3C3R;

// Level-shifted samples to bytes: adds 128 and clamps to 0..255. Both strides in bytes.
IppStatus ippiAdd128_JPEG_16s8u_C1R(const std::int16_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                                    std::int32_t nDstStep, IppiSize roiSize);

// Axes of a mirror.
inline constexpr std::int32_t ippAxisTopToBottom = 0;
inline constexpr std::int32_t ippAxisLeftToRight = 1;
inline constexpr std::int32_t ippAxisBoth = 2;

// Mirrors pixels of three or four bytes. Strides in bytes; source and destination do not overlap. The IR
// forms mirror in place. ippStsMirrorAxisErr for an axis that is none of the above.
IppStatus ippiMirror_8u_C3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize, std::int32_t nAxis);
IppStatus ippiMirror_8u_C4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize, std::int32_t nAxis);
IppStatus ippiMirror_8u_C3IR(std::uint8_t* pSrcDst, std::int32_t nStep, IppiSize roiSize, std::int32_t nAxis);
IppStatus ippiMirror_8u_C4IR(std::uint8_t* pSrcDst, std::int32_t nStep, IppiSize roiSize, std::int32_t nAxis);

// The list of the family (Kernels.h): names and numbers of arguments.
#define FALLBACK_OUTPUT_KERNELS(KERNEL)                                                                      \
    KERNEL(ippiYCbCr444ToBGRLS_MCU_16s8u_P3C3R, 3)                                                           \
    KERNEL(ippiYCbCr422ToBGRLS_MCU_16s8u_P3C3R, 3)                                                           \
    KERNEL(ippiYCbCr420ToBGRLS_MCU_16s8u_P3C3R, 3)                                                           \
    KERNEL(ippiYCbCr444ToRGBLS_MCU_16s8u_P3C3R, 3)                                                           \
    KERNEL(ippiYCbCr422ToRGBLS_MCU_16s8u_P3C3R, 3)                                                           \
    KERNEL(ippiYCbCr420ToRGBLS_MCU_16s8u_P3C3R, 3)                                                           \
    KERNEL(ippiAdd128_JPEG_16s8u_C1R, 5)                                                                     \
    KERNEL(ippiMirror_8u_C3R, 6)                                                                             \
    KERNEL(ippiMirror_8u_C4R, 6)                                                                             \
    KERNEL(ippiMirror_8u_C3IR, 4)                                                                            \
    KERNEL(ippiMirror_8u_C4IR, 4)
