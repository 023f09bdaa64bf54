// Quantisation and Huffman tables of the encoder.
#pragma once

#include "image/kernels/Status.h"

// Scales 64 quantiser steps in place for a quality: with f = 5000/q below a quality q of 50, else 200 - 2q,
// every step e becomes (e*f + 50)/100, limited to 1..255. ippStsBadArgument for a quality below 1; above 100
// every step is 1.
IppStatus ippiQuantFwdRawTableInit_JPEG_8u(std::uint8_t* pRawTable, std::int32_t nQuality);

// Steps in zigzag order, none of them 0, become factors in natural order: 32768 over the step, rounded to
// nearest with ties to even. A step of 1 gives 32768, which is why the factors are unsigned.
// ippStsBadArgument for a step of 0.
IppStatus ippiQuantFwdTableInit_JPEG_8u16u(const std::uint8_t* pRawTable, std::uint16_t* pTable);

// An encoding table by symbol. Read-only once made.
struct ippiEncodeHuffmanSpec {
    std::uint32_t aCode[256]; // (code length << 16) | code, 0 for a symbol without a code
    // For symbols whose low four bits are the size of a value that follows, up to 11 bits: the code with room
    // for the value below it, << 5, and the code's length. 0 for other symbols and those without a code.
    std::uint32_t aWhole[256];
    // Whether everything that a baseline scan of 8-bit samples can ask of the table has a code.
    bool bBaselineDc; // sizes 0 to 11
    bool bBaselineAc; // each run with sizes 1 to 10, the run of sixteen and the end of the block
};

// Builds a table from the 16 counts and the values of a table segment (T.81 Annex C). The table comes back
// through ppSpec also with an error: over-full code lengths (ippStsHuffmanTableErr) leave a table without
// codes. Null only when an argument is, or when the memory is not there (both ippStsNullPtrErr). pValues
// holds as many bytes as the counts sum to. The caller frees the table with the second function.
IppStatus ippiEncodeHuffmanSpecInit_JPEG_8u(const std::uint8_t* pBits, const std::uint8_t* pValues,
                                            ippiEncodeHuffmanSpec** ppSpec);
IppStatus ippiEncodeHuffmanSpecFree_JPEG_8u(ippiEncodeHuffmanSpec* pSpec);

// The shortest code of up to 16 bits for 256 counts: 16 counts of lengths and the values in code order, with
// zeros behind (T.81 Annex K.2). The code of all ones stays unused. ippStsHuffmanTableErr where lengths
// beyond 32 bits come up on the way; bits and values are untouched then.
IppStatus ippiEncodeHuffmanRawTableInit_JPEG_8u(const std::uint32_t* pStatistics, std::uint8_t* pBits,
                                                std::uint8_t* pValues);
