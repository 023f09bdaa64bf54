// Huffman decoding of coefficient blocks (T.81 Annex F.2.2).
#pragma once

#include "image/kernels/Status.h"
#include "image/kernels/Tables.h"

// The bit reader between two calls. One state belongs to one scan and one thread.
struct ippiDecodeHuffmanState {
    std::uint32_t nAccumulator; // the held bits, the next one topmost, zeros below them
    std::int32_t nBits;         // how many are held, 0 to 32
    std::int32_t nEobRun;       // end-of-band run of the progressive AC kernels
    std::int32_t nCoefficients; // coefficients done in the current block
};

// Makes a state and resets it (ippStsNullPtrErr also when there is no memory), resets one, releases one.
IppStatus ippiDecodeHuffmanStateInitAlloc_JPEG_8u(ippiDecodeHuffmanState** ppState);
IppStatus ippiDecodeHuffmanStateInit_JPEG_8u(ippiDecodeHuffmanState* pState);
IppStatus ippiDecodeHuffmanStateFree_JPEG_8u(ippiDecodeHuffmanState* pState);

// Decodes one block of 64 coefficients into natural order.
//
// Intake starts at *pSrcCurrPos and moves it; it runs ahead of the decoded bits by what the state holds. A
// marker in the data is stored in *pMarker, its position left behind it, and stops all intake until the
// caller clears it: bits held by then still decode. *pLastDC is the DC predictor.
//
// ippStsBufferEnd and ippStsMarkerOrNoCode as in Status.h; ippStsBadRun for a run that points well beyond the
// block; ippStsBadArgument for a negative source size or position. An error leaves the block as far as it
// got, with zeros behind.
IppStatus ippiDecodeHuffman8x8_JPEG_1u16s_C1(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                             std::int32_t* pSrcCurrPos, std::int16_t* pDst,
                                             std::int16_t* pLastDC, std::int32_t* pMarker,
                                             const ippiDecodeHuffmanSpec* pDcTable,
                                             const ippiDecodeHuffmanSpec* pAcTable,
                                             ippiDecodeHuffmanState* pState);
