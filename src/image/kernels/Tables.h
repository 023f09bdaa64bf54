// What is made once for a stream or a table segment: quantiser steps and factors, Huffman tables in the forms
// that the kernels work with, the states of bit readers and writers. Nothing here has variants.
#pragma once

#include "image/kernels/Memory.h"

#include <cstdint>
#include <memory>

// The zigzag sequence (T.81 Figure A.6): natural position of each coefficient in coding order.
//
// Behind the 64 positions stand 8 entries of 63, so that a run that passes the end of a block stays inside
// it, and then, up to the farthest place that a run can reach, entries that are no position at all.
inline constexpr std::uint8_t g_aZigZag[80] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33,
    40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36,
    29, 22, 15, 23, 30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54,
    47, 55, 62, 63, 63, 63, 63, 63, 63, 63, 63, 63, 64, 64, 64, 64, 64, 64, 64, 64};

// Decoding.

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

// Encoding.

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

// The bit writer between two calls. One state belongs to one scan and one thread.
struct ippiEncodeHuffmanState {
    std::uint32_t nAccumulator;      // held bits in 23 and below; bits 16 to 23 are the next byte to go out
    std::int32_t nBits;              // how many are held, 0 to 7
    std::int32_t nEobRun;            // blocks in the pending end-of-band run
    std::int32_t nCorrections;       // bits that go out behind that run
    std::uint8_t aCorrections[1024]; // one a byte
};

// Makes a state and resets it (ippStsNullPtrErr also when there is no memory), resets one, releases one.
IppStatus ippiEncodeHuffmanStateInitAlloc_JPEG_8u(ippiEncodeHuffmanState** ppState);
IppStatus ippiEncodeHuffmanStateInit_JPEG_8u(ippiEncodeHuffmanState* pState);
IppStatus ippiEncodeHuffmanStateFree_JPEG_8u(ippiEncodeHuffmanState* pState);

// Owners.
struct IppTableDeleter {
    void operator()(ippiDecodeHuffmanSpec* p) const noexcept { ippiDecodeHuffmanSpecFree_JPEG_8u(p); }
    void operator()(ippiEncodeHuffmanSpec* p) const noexcept { ippiEncodeHuffmanSpecFree_JPEG_8u(p); }
    void operator()(ippiDecodeHuffmanState* p) const noexcept { ippiDecodeHuffmanStateFree_JPEG_8u(p); }
    void operator()(ippiEncodeHuffmanState* p) const noexcept { ippiEncodeHuffmanStateFree_JPEG_8u(p); }
};
template <typename T>
using IppTablePtr = std::unique_ptr<T, IppTableDeleter>;
