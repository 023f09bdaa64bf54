// Many MCUs in one call, from samples to quantised coefficients and on to entropy-coded data: to the byte
// what the block kernels give one after the other (ForwardTransform.h, EntropyEncode.h). For baseline scans,
// and for the coefficients of progressive ones.
#pragma once

#include "image/kernels/EntropyEncode.h"
#include "image/kernels/Status.h"

// A component of the scan within one row of MCUs.
struct ippiScanComponent {
    const std::uint8_t* pSamples; // top left sample of the next MCU
    const std::uint16_t* pTable;  // of ippiQuantFwdTableInit_JPEG_8u16u
    const ippiEncodeHuffmanSpec* pDcTable;
    const ippiEncodeHuffmanSpec* pAcTable;
    std::int32_t nStep;      // bytes from row to row
    std::int32_t nHSampling; // blocks of an MCU, 1 or 2 each way
    std::int32_t nVSampling;
    std::int16_t nLastDc;
};

inline constexpr std::int32_t ippScanMaxBlocks = 10; // of one MCU (T.81 B.2.3)

// Appends nMcus MCUs of 1 to 4 components and moves pSamples and nLastDc along. The tables must have a code
// for everything that a baseline scan may need, else ippStsHuffmanTableErr; ippStsBufferEnd as for a block.
// ippStsBadArgument for component counts, factors or an MCU out of range.
IppStatus ippiEncodeMcus_JPEG_8u1u(ippiScanComponent* pComponents, std::int32_t nComponents,
                                   std::int32_t nMcus, std::uint8_t* pDst, std::int32_t nDstSize,
                                   std::int32_t* pDstCurrPos, ippiEncodeHuffmanState* pState);

// The quantised coefficients of nMcus MCUs, block after block of 64 in natural order; moves pSamples along.
// Huffman tables and nLastDc are not looked at.
IppStatus ippiTransformMcus_JPEG_8u16s(ippiScanComponent* pComponents, std::int32_t nComponents,
                                       std::int32_t nMcus, std::int16_t* pDst);
