// Huffman decoding of coefficient blocks (T.81 Annex F.2.2). First sequential ones, then those of a
// progressive frame.
#pragma once

#include "image/kernels/Tables.h"

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

// Huffman decoding of the scans of a progressive frame (T.81 Annex G.2). Each scan adds to the coefficients
// that the scans before it left in the block; nothing is cleared.
//
// Source, position, marker and state as in ippiDecodeHuffman8x8_JPEG_1u16s_C1 (above), and so are the
// statuses of data that ends or has no code. ippStsBadArgument also for an Al outside 0..13 and for a band
// that is not 1 <= Ss <= Se <= 63. An error leaves the block as far as it got.
//
// DC, first scan: the predictor goes on in *pLastDC, the coefficient is its value shifted left by Al.
IppStatus ippiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                                     std::int32_t* pSrcCurrPos, std::int16_t* pDst,
                                                     std::int16_t* pLastDC, std::int32_t* pMarker,
                                                     std::int32_t nAl, const ippiDecodeHuffmanSpec* pDcTable,
                                                     ippiDecodeHuffmanState* pState);

// DC, later scans: one bit, set at place Al.
IppStatus ippiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                                      std::int32_t* pSrcCurrPos, std::int16_t* pDst,
                                                      std::int32_t* pMarker, std::int32_t nAl,
                                                      ippiDecodeHuffmanState* pState);

// AC coefficients Ss to Se in coding order, first scan. The end-of-band run is kept in the state.
using IppAcDecoder = IppStatus(const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
                               std::int16_t* pDst, std::int32_t nSs, std::int32_t nSe, std::int32_t nAl,
                               std::int32_t* pMarker, const ippiDecodeHuffmanSpec* pAcTable,
                               ippiDecodeHuffmanState* pState);
IppAcDecoder ippiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1;

// AC, later scans: one more bit for each coefficient that is not zero yet, and the ones that become so.
// ippStsMarkerOrNoCode also for a symbol that no refinement has: a new coefficient of more than one bit.
IppAcDecoder ippiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1;

// The list of the family (Kernels.h): names and numbers of arguments.
#define DECODE_KERNELS(KERNEL)                                                                               \
    KERNEL(ippiDecodeHuffman8x8_JPEG_1u16s_C1, 9)                                                            \
    KERNEL(ippiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1, 9)                                                    \
    KERNEL(ippiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1, 7)                                                   \
    KERNEL(ippiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1, 10)                                                   \
    KERNEL(ippiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1, 10)
