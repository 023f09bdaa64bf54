// Samples to entropy-coded data for many MCUs in one call: what the block kernels do, block after block, with
// the same bytes. For baseline scans alone.
#pragma once

#include "image/kernels/EntropyEncode.h"
#include "image/kernels/Status.h"

// A component of the scan within one row of MCUs.
struct ippiScanComponent {
    const std::uint8_t* pSamples; // top left sample of the next MCU
    std::int32_t nStep;           // bytes from row to row
    std::int32_t nHSampling;      // blocks of an MCU, 1 or 2 each way
    std::int32_t nVSampling;
    // Factors of the quantiser in natural order with rows and columns exchanged: entry 8*x + y belongs to the
    // coefficient of horizontal frequency x and vertical frequency y.
    const std::uint16_t* pExchangedTable;
    const ippiEncodeHuffmanSpec* pDcTable;
    const ippiEncodeHuffmanSpec* pAcTable;
    std::int16_t nLastDc;
};

inline constexpr std::int32_t ippScanMaxBlocks = 10; // of one MCU (T.81 B.2.3)

// Appends nMcus MCUs of 1 to 4 components and moves pSamples and nLastDc along. The tables must have a code
// for everything that a baseline scan may need, else ippStsHuffmanTableErr; ippStsBufferEnd as for a block.
// ippStsBadArgument for component counts, factors or an MCU out of range.
IppStatus ippiEncodeMcus_JPEG_8u1u(ippiScanComponent* pComponents, std::int32_t nComponents,
                                   std::int32_t nMcus, std::uint8_t* pDst, std::int32_t nDstSize,
                                   std::int32_t* pDstCurrPos, ippiEncodeHuffmanState* pState);
