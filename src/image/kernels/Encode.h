// Huffman encoding of coefficient blocks: one call a block, sequential (T.81 Annex F.1.2) and progressive
// (Annex G.1.2), and the same walks that count symbols instead of writing them.
//
// Blocks are 64 coefficients in natural order. The writers append at *pDstCurrPos of a buffer of nDstSize
// bytes and move it; a byte of 0xFF is followed by 0x00. ippStsBufferEnd when a byte finds no room and
// ippStsHuffmanTableErr for a symbol without a code: what was written by then stays, and the state is good
// for a reset alone.
//
// With bFlush set a writer ends its segment: a pending end-of-band run goes out (AC kernels), the last byte
// is filled with one bits, the state is reset. Source and DC tables are not looked at then and may be null.
//
// ippStsBadArgument for Ss outside 1..63, Se outside Ss..63, Al outside 0..13 and a negative position,
// ippStsSizeErr for a negative size.
#pragma once

#include "image/kernels/Tables.h"

// A whole block; *pLastDC is the DC predictor.
IppStatus ippiEncodeHuffman8x8_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                             std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                             std::int16_t* pLastDC, const ippiEncodeHuffmanSpec* pDcTable,
                                             const ippiEncodeHuffmanSpec* pAcTable,
                                             ippiEncodeHuffmanState* pState, std::int32_t bFlush);

// The DC coefficient without its nAl low bits, and one of those bits.
IppStatus ippiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                                     std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                                     std::int16_t* pLastDC, std::int32_t nAl,
                                                     const ippiEncodeHuffmanSpec* pDcTable,
                                                     ippiEncodeHuffmanState* pState, std::int32_t bFlush);
IppStatus ippiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                                      std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                                      std::int32_t nAl, ippiEncodeHuffmanState* pState,
                                                      std::int32_t bFlush);

// Coefficients nSs to nSe without their nAl low bits, and one of those bits. A flush needs the table.
IppStatus ippiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                                     std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                                     std::int32_t nSs, std::int32_t nSe, std::int32_t nAl,
                                                     const ippiEncodeHuffmanSpec* pAcTable,
                                                     ippiEncodeHuffmanState* pState, std::int32_t bFlush);
IppStatus ippiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                                      std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                                      std::int32_t nSs, std::int32_t nSe, std::int32_t nAl,
                                                      const ippiEncodeHuffmanSpec* pAcTable,
                                                      ippiEncodeHuffmanState* pState, std::int32_t bFlush);

// The dry run: each symbol that the writer of the same name would code adds one to its counter of 256.
IppStatus ippiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(const std::int16_t* pSrc,
                                                          std::uint32_t* pStatistics, std::int16_t* pLastDC,
                                                          std::int32_t nAl);
IppStatus ippiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(const std::int16_t* pSrc,
                                                          std::uint32_t* pStatistics, std::int32_t nSs,
                                                          std::int32_t nSe, std::int32_t nAl,
                                                          ippiEncodeHuffmanState* pState,
                                                          std::int32_t bFlush);
IppStatus ippiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(const std::int16_t* pSrc,
                                                           std::uint32_t* pStatistics, std::int32_t nSs,
                                                           std::int32_t nSe, std::int32_t nAl,
                                                           ippiEncodeHuffmanState* pState,
                                                           std::int32_t bFlush);

// The list of the family (Kernels.h): names and numbers of arguments.
#define ENCODE_KERNELS(KERNEL)                                                                               \
    KERNEL(ippiEncodeHuffman8x8_JPEG_16s1u_C1, 9)                                                            \
    KERNEL(ippiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1, 9)                                                    \
    KERNEL(ippiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1, 7)                                                   \
    KERNEL(ippiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1, 10)                                                   \
    KERNEL(ippiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1, 10)                                                  \
    KERNEL(ippiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1, 4)                                               \
    KERNEL(ippiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1, 7)                                               \
    KERNEL(ippiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1, 7)
