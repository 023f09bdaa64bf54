// Kernels of our own, over many blocks in one call; the interface that names the others does not have them,
// and their names begin with ippx.
//
// Each is the fast way to what the kernels of single blocks give one after the other. Those define every
// outcome: what a fast way cannot take, a marker in the way, a run beyond its block or the end of the data,
// it leaves untouched to them.
#pragma once

#include "image/kernels/Decode.h"
#include "image/kernels/Encode.h"
#include "image/kernels/Memory.h"

// Decoding of whole MCUs of a sequential scan (T.81 Annex F.2), entropy decoder and inverse transform in one.

// A piece of the source without its stuffed bytes, so that the bit reader needs no look at single bytes.
// nOffset in pBytes and nSrcPos in the source are the same place, the cursor: that from which the last run
// would go on. Filled by ippxDecodeMcus_1u8u as needed; nSrcPos is -1 where it holds nothing.
struct IppBitWindow {
    IppBuffer<std::uint8_t> pBytes; // nCapacity + ippWindowSlack bytes
    std::int32_t nCapacity = 0;
    std::int32_t nBytes = 0;
    std::int32_t nOffset = 0;
    std::int32_t nSrcPos = -1;
    bool bMore = false; // the capacity ended it, not the data
};

// Bytes behind the window's own that a reader may touch: more than the 64 * 31 bits of a longest block.
inline constexpr std::int32_t ippWindowSlack = 320;

// What is to be done for one block of an MCU.
struct IppMcuBlock {
    std::int32_t nComponent; // whose DC predictor counts, 0 to 3
    const ippiDecodeHuffmanSpec* pDcTable;
    const ippiDecodeHuffmanSpec* pAcTable;
    const IppDcLookup* pDcLookup;
    const IppAcLookup* pAcLookup;
    const std::uint16_t* pSteps; // quantiser steps below 32768, natural order; of equal ones the same
    std::uint8_t* pDst;          // of the block in the row's first MCU
    std::int32_t nDstStep;
    std::int32_t nDstAdvance; // bytes from an MCU's block to the next MCU's
    std::int64_t nDstBelow;   // and to that of the MCU below, or 0 where the next row goes elsewhere
};

inline constexpr std::int32_t ippMaxMcuBlocks = 10; // T.81 B.2.3
inline constexpr std::int32_t ippMaxMcuSteps = 4;   // quantisers of them, a component's each

// A row of MCUs.
struct IppMcuRow {
    IppMcuBlock aBlocks[ippMaxMcuBlocks];
    std::int32_t nBlocks; // in one MCU
    // The coefficients of the blocks stay, one block after the other from the row's first one on. Without
    // that, which is faster, they are not touched.
    bool bKeep;
    std::int16_t* pCoefficients;
    std::int16_t anLastDc[4]; // DC predictors, carried on
};

// Decodes nMcus MCUs of a row from nFirst on, or as many of them as is possible in the fast way: *pDone. The
// arguments of the source are those of the block kernel, and stand afterwards as if it had decoded the same
// blocks, but for the bits held ahead, which may be fewer. Blocks of the MCU behind the last one done may
// have been begun, samples included: up to the one that could not be decoded.
//
// ippStsNullPtrErr and ippStsBadArgument for bad arguments, before anything is touched.
IppStatus ippxDecodeMcus_1u8u(const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
                              const std::int32_t* pMarker, ippiDecodeHuffmanState* pState,
                              IppBitWindow* pWindow, IppMcuRow* pRow, std::int32_t nFirst, std::int32_t nMcus,
                              std::int32_t* pDone);

// Scans of a progressive frame.

// The blocks of one component that stand in a row of the picture. Beside its coefficients each has a mask:
// bit k is set where coefficient k in coding order is not zero, so that a refinement need not look for those.
struct IppProgressiveRow {
    std::int32_t nSs; // the scan's band, 1 <= nSs <= nSe <= 63
    std::int32_t nSe;
    std::int32_t nAl; // 0 to 13
    bool bRefine;
    const ippiDecodeHuffmanSpec* pTable;
    std::int16_t* pBlocks;   // of the row's first block
    std::uint64_t* pMasks;   // likewise
    std::int32_t nTogether;  // blocks of the row in one MCU, which follow each other
    std::int32_t nMcuBlocks; // from one MCU to the next
};

// Decodes nBlocks blocks of the row from nFirst on, or as many as is possible in the fast way: *pDone. The
// arguments of the source are those of the block kernels, and stand afterwards as if those had decoded the
// same blocks, but for the bits held ahead. Blocks behind the last one done are as they were, but for
// coefficients that the block kernel will write again.
//
// ippStsNullPtrErr and ippStsBadArgument for bad arguments, before anything is touched.
IppStatus ippxDecodeProgressiveRow_1u16s(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                         std::int32_t* pSrcCurrPos, const std::int32_t* pMarker,
                                         ippiDecodeHuffmanState* pState, IppBitWindow* pWindow,
                                         const IppProgressiveRow* pRow, std::int32_t nFirst,
                                         std::int32_t nBlocks, std::int32_t* pDone);

// What a DC scan of several components does with an MCU, whose blocks follow each other.
struct IppProgressiveMcus {
    std::int32_t nAl; // 0 to 13
    bool bRefine;
    bool bClear;           // first scan alone: the other coefficients hold anything, and become zeros
    std::int16_t* pBlocks; // of the first MCU
    std::int32_t nBlocks;  // in one MCU, 1 to ippMaxMcuBlocks
    std::int32_t nNamed;   // how many of them the scan has bits for, and which
    bool abNamed[ippMaxMcuBlocks];
    std::int32_t anComponents[ippMaxMcuBlocks];             // 0 to 3
    const ippiDecodeHuffmanSpec* apTables[ippMaxMcuBlocks]; // first scan alone; null where none is named
    std::int16_t anLastDc[4];                               // DC predictors by component, carried on
};

// Decodes nMcus MCUs in the fast way, or as many as it takes: *pDone. As the function above in all else.
IppStatus ippxDecodeProgressiveMcus_1u16s(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                          std::int32_t* pSrcCurrPos, const std::int32_t* pMarker,
                                          ippiDecodeHuffmanState* pState, IppBitWindow* pWindow,
                                          IppProgressiveMcus* pMcus, std::int32_t nMcus, std::int32_t* pDone);

// The samples of nMcus MCUs from nFirst on. The row says where they go, its coefficients what they are made
// of; of its tables and predictors nothing counts. The masks are those of its blocks from the first on.
// ippStsNullPtrErr and ippStsBadArgument for bad arguments.
IppStatus ippxInverseMcus_16s8u(const IppMcuRow* pRow, const std::uint64_t* pMasks, std::int32_t nFirst,
                                std::int32_t nMcus);

// The mask of a block, from its coefficients.
inline std::uint64_t ippProgressiveMask(const std::int16_t* pBlock) noexcept {
    std::uint64_t nMask = 0;
    for (int k = 0; k < 64; ++k)
        nMask |= std::uint64_t{pBlock[g_aZigZag[k]] != 0} << k;
    return nMask;
}

// Many MCUs in one call, from samples to quantised coefficients and on to entropy-coded data: to the byte
// what the block kernels give one after the other (Transform.h, Encode.h). For baseline scans,
// and for the coefficients of progressive ones.

// A component of the scan within one row of MCUs.
struct IppScanComponent {
    const std::uint8_t* pSamples; // top left sample of the next MCU
    const std::uint16_t* pTable;  // of ippiQuantFwdTableInit_JPEG_8u16u
    const ippiEncodeHuffmanSpec* pDcTable;
    const ippiEncodeHuffmanSpec* pAcTable;
    std::int32_t nStep;      // bytes from row to row
    std::int32_t nHSampling; // blocks of an MCU, 1 or 2 each way
    std::int32_t nVSampling;
    std::int16_t nLastDc;
};

// Appends nMcus MCUs of 1 to 4 components and moves pSamples and nLastDc along. The tables must have a code
// for everything that a baseline scan may need, else ippStsHuffmanTableErr; ippStsBufferEnd as for a block.
// ippStsBadArgument for component counts, factors or an MCU out of range.
IppStatus ippxEncodeMcus_8u1u(IppScanComponent* pComponents, std::int32_t nComponents, std::int32_t nMcus,
                              std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                              ippiEncodeHuffmanState* pState);

// The quantised coefficients of nMcus MCUs, block after block of 64 in natural order; moves pSamples along.
// Huffman tables and nLastDc are not looked at.
IppStatus ippxTransformMcus_8u16s(IppScanComponent* pComponents, std::int32_t nComponents, std::int32_t nMcus,
                                  std::int16_t* pDst);

// The list of the family (Kernels.h): names and numbers of arguments.
#define BATCH_KERNELS(KERNEL)                                                                                \
    KERNEL(ippxDecodeMcus_1u8u, 10)                                                                          \
    KERNEL(ippxDecodeProgressiveRow_1u16s, 10)                                                               \
    KERNEL(ippxDecodeProgressiveMcus_1u16s, 9)                                                               \
    KERNEL(ippxInverseMcus_16s8u, 4)                                                                         \
    KERNEL(ippxEncodeMcus_8u1u, 7)                                                                           \
    KERNEL(ippxTransformMcus_8u16s, 4)
