// Scans of a progressive frame over many blocks in one call.
//
// The fast way through undamaged data, as McuRun.h is for sequential scans: what it cannot take it leaves
// untouched to the kernels of single blocks (ProgressiveEntropy.h), which define every outcome.
#pragma once

#include "image/kernels/Entropy.h"
#include "image/kernels/McuRun.h"

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
IppStatus ippiDecodeProgressiveRow_JPEG_1u16s(const std::uint8_t* pSrc, std::int32_t nSrcSize,
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
IppStatus ippiDecodeProgressiveMcus_JPEG_1u16s(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                               std::int32_t* pSrcCurrPos, const std::int32_t* pMarker,
                                               ippiDecodeHuffmanState* pState, IppBitWindow* pWindow,
                                               IppProgressiveMcus* pMcus, std::int32_t nMcus,
                                               std::int32_t* pDone);

// The samples of nMcus MCUs from nFirst on. The row says where they go, its coefficients what they are made
// of; of its tables and predictors nothing counts. The masks are those of its blocks from the first on.
// ippStsNullPtrErr and ippStsBadArgument for bad arguments.
IppStatus ippiInverseMcus_JPEG_16s8u(const IppMcuRow* pRow, const std::uint64_t* pMasks, std::int32_t nFirst,
                                     std::int32_t nMcus);

// The mask of a block, from its coefficients.
std::uint64_t ippProgressiveMask(const std::int16_t* pBlock) noexcept;
