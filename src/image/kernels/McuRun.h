// Decoding of whole MCUs of a sequential scan (T.81 Annex F.2), entropy decoder and inverse transform in one.
//
// The fast way through undamaged data. What it cannot take, a marker in the way, a run beyond its block or
// the end of the data, it leaves untouched to ippiDecodeHuffman8x8_JPEG_1u16s_C1, which defines every
// outcome.
#pragma once

#include "image/kernels/Entropy.h"
#include "image/kernels/Memory.h"

// Index bits of the look-up tables below. More would push the tables out of the first-level cache, fewer
// leave too many symbols to the slow way.
inline constexpr std::int32_t ippLookupBits = 10;

// DC differences by the next ippLookupBits bits: difference << 16 | bits of code and difference together.
// Where they are more, symbol << 16 | ippDcLookupLong | bits of the code, the last being 0 and the symbol not
// known where even the code is longer.
struct IppDcLookup {
    std::uint32_t aEntries[1 << ippLookupBits];
};

inline constexpr std::uint32_t ippDcLookupLong = 1 << 8;

// One or two AC symbols by the next ippLookupBits bits. From the low end: eight bits for the bits to drop,
// eight for the advance, eight each for the place of the first and the second coefficient behind the present
// one, sixteen each for their values. A lone coefficient stands in both places.
//
// The advance also tells what ended: ippLookupEnd is added to it by an end of block. It is ippLookupLong
// where the bits do not suffice for one symbol and its value; then nothing is to drop, the first place holds
// the length of the code, or 0 where that does not fit either, and the second the symbol.
struct IppAcLookup {
    std::uint64_t aEntries[1 << ippLookupBits];
};

inline constexpr std::uint32_t ippLookupEnd = 128;
inline constexpr std::uint32_t ippLookupLong = 64;

void ippDcLookupInit(const ippiDecodeHuffmanSpec& huffman, IppDcLookup& lookup) noexcept;
void ippAcLookupInit(const ippiDecodeHuffmanSpec& huffman, IppAcLookup& lookup) noexcept;

// A piece of the source without its stuffed bytes, so that the bit reader needs no look at single bytes.
// nOffset in pBytes and nSrcPos in the source are the same place, the cursor: that from which the last run
// would go on. Filled by ippiDecodeMcus_JPEG_1u8u as needed; nSrcPos is -1 where it holds nothing.
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
    const std::uint16_t* pSteps; // quantiser steps below 32768, natural order
    std::uint8_t* pDst;          // of the block in the row's first MCU
    std::int32_t nDstStep;
    std::int32_t nDstAdvance; // bytes from an MCU's block to the next MCU's
};

inline constexpr std::int32_t ippMaxMcuBlocks = 10; // T.81 B.2.3

// A row of MCUs. The coefficients of its blocks follow each other and stay after the run.
struct IppMcuRow {
    IppMcuBlock aBlocks[ippMaxMcuBlocks];
    std::int32_t nBlocks; // in one MCU
    std::int16_t* pCoefficients;
    std::int16_t anLastDc[4]; // DC predictors, carried on
};

// Decodes nMcus MCUs of a row from nFirst on, or as many of them as is possible in the fast way: *pDone. The
// arguments of the source are those of the block kernel, and stand afterwards as if it had decoded the same
// blocks, but for the bits held ahead, which may be fewer. Blocks of the MCU behind the last one done may
// have been begun: up to the one that could not be decoded.
//
// ippStsNullPtrErr and ippStsBadArgument for bad arguments, before anything is touched.
IppStatus ippiDecodeMcus_JPEG_1u8u(const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
                                   const std::int32_t* pMarker, ippiDecodeHuffmanState* pState,
                                   IppBitWindow* pWindow, IppMcuRow* pRow, std::int32_t nFirst,
                                   std::int32_t nMcus, std::int32_t* pDone);
