// Quantisation and Huffman tables in the forms that the kernels work with.
#pragma once

#include "image/kernels/Status.h"

// Quantiser steps: 64 bytes in zigzag order (T.81 Figure A.6) become 64 16-bit steps in natural order.
IppStatus ippiQuantInvTableInit_JPEG_8u16u(const std::uint8_t* pRawTable, std::uint16_t* pTable);

// Look-ahead bits of the combined table below.
inline constexpr std::int32_t ippDecodeRunBits = 10;

// A decoding table. Made by ippiDecodeHuffmanSpecInit_JPEG_8u and read-only afterwards, so that any number of
// threads may decode with it.
struct ippiDecodeHuffmanSpec {
    std::uint16_t aValues[256]; // symbols in code order
    // By the next eight bits: (code length << 16) | symbol, or 0 where the code is longer than 8 bits.
    std::uint32_t aFast[256];
    // By code length 1 to 16 (T.81 F.2.2.3). A length without codes has a greatest code of -1, entry 17 is a
    // sentinel that no code exceeds. 32 bits wide: a code of 16 bits and -1 do not fit one 16-bit type.
    std::int32_t aMinCode[18];
    std::int32_t aMaxCode[18];
    std::int32_t aValueIndex[18];
    // By the next ippDecodeRunBits bits, for AC coefficients that fit them whole, code and value:
    // value << 16 | positions to advance << 8 | bits. An end of block advances by 64, a run of sixteen zeros
    // by 16, both with a value of 0. An entry of 0 tells that the bits do not suffice.
    std::uint32_t aRun[1 << ippDecodeRunBits];
};

// Builds a table from the 16 counts and the values of a table segment (T.81 Annex C). The table comes back
// through ppSpec also with an error: over-full code lengths (ippStsHuffmanTableErr) leave a table in which no
// code is found. Null only when an argument is, or when the memory is not there (both ippStsNullPtrErr).
// pValues holds as many bytes as the counts sum to. The caller frees the table with the second function.
IppStatus ippiDecodeHuffmanSpecInit_JPEG_8u(const std::uint8_t* pBits, const std::uint8_t* pValues,
                                            ippiDecodeHuffmanSpec** ppSpec);
IppStatus ippiDecodeHuffmanSpecFree_JPEG_8u(ippiDecodeHuffmanSpec* pSpec);
