// Many MCUs in one call, from samples to quantised coefficients and on to entropy-coded data. For baseline
// scans, and for the coefficients of progressive ones.
//
// Unlike the block kernel (ForwardTransform.h), which rounds coefficients to whole numbers first, these
// quantise them with four fraction bits: values near the middle between two steps go to the right one. A
// magnitude less than a sixteenth of a coefficient below the middle, where it could be off by the transform's
// error, still goes up: in doubt detail is kept.
#pragma once

#include "image/kernels/EntropyEncode.h"
#include "image/kernels/Status.h"

// Steps in zigzag order, none of them 0, become factors in natural order with rows and columns exchanged:
// entry 8*x + y belongs to the coefficient of horizontal frequency x and vertical frequency y. 65536 over the
// step, times what the transform leaves out for that frequency. ippStsBadArgument for a step of 0.
IppStatus ippiQuantScanTableInit_JPEG_8u16u(const std::uint8_t* pRawTable, std::uint16_t* pTable);

// A component of the scan within one row of MCUs.
struct ippiScanComponent {
    const std::uint8_t* pSamples;    // top left sample of the next MCU
    const std::uint16_t* pScanTable; // of the function above
    const ippiEncodeHuffmanSpec* pDcTable;
    const ippiEncodeHuffmanSpec* pAcTable;
    std::int32_t nStep;      // bytes from row to row
    std::int32_t nHSampling; // blocks of an MCU, 1 or 2 each way
    std::int32_t nVSampling;
    std::int16_t nLastDc;
};

inline constexpr std::int32_t ippScanMaxBlocks = 10; // of one MCU (T.81 B.2.3)

// Appends nMcus MCUs of 1 to 4 components and moves pSamples and nLastDc along: with the coefficients of the
// second function, the bytes of the block writer (EntropyEncode.h). The tables must have a code for
// everything that a baseline scan may need, else ippStsHuffmanTableErr; ippStsBufferEnd as for a block.
// ippStsBadArgument for component counts, factors or an MCU out of range.
IppStatus ippiEncodeMcus_JPEG_8u1u(ippiScanComponent* pComponents, std::int32_t nComponents,
                                   std::int32_t nMcus, std::uint8_t* pDst, std::int32_t nDstSize,
                                   std::int32_t* pDstCurrPos, ippiEncodeHuffmanState* pState);

// The quantised coefficients of nMcus MCUs, block after block of 64 in natural order; moves pSamples along.
// Huffman tables and nLastDc are not looked at.
IppStatus ippiTransformMcus_JPEG_8u16s(ippiScanComponent* pComponents, std::int32_t nComponents,
                                       std::int32_t nMcus, std::int16_t* pDst);
