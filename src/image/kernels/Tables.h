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

// The same in memory of the caller: ippStsNoErr or ippStsHuffmanTableErr.
IppStatus ippDecodeHuffmanSpecFill(const std::uint8_t* pBits, const std::uint8_t* pValues,
                                   ippiDecodeHuffmanSpec& huffman) noexcept;

// What the MCU decoder looks codes up in. Index bits of its tables: with more the tables of a picture are
// forced out of the first-level cache, and many cameras push those of each other out of the second, with
// fewer too many symbols go the slow way.
inline constexpr std::uint32_t ippLookupBits = 10;

// All codes of a table, for those that are longer than the index.
struct IppCodes {
    // By code length - 1: the first 16 bits that, left-justified, are behind the codes of this length and all
    // shorter ones.
    std::int32_t aLimits[16];
    std::int32_t aOffsets[16]; // what a code of this length lacks to the index of its symbol
    std::uint8_t aValues[256];
};

// DC differences: the bits of code and difference together and, << 8, those of the difference; 0 where the
// code is longer than the index or both have more than ippDcLongest bits.
struct IppDcLookup {
    std::uint16_t aEntries[1 << ippLookupBits];
    IppCodes codes;
};

inline constexpr std::uint32_t ippDcLongest = 20;

// One or two AC symbols. The coefficient of the first is in the entry, that of the second is in the last bits
// of what there is to drop, so that it need not fit the index. From the low end:
//
//   6 bits   to drop, at most ippAcLongest
//   8 bits   place of the second coefficient behind the present one; also what ended
//   4 bits   place of the first one
//   4 bits   size of the second one's value, 0 to 9
//   10 bits  value of the first one, signed
//
// The next place is that behind the second one. A lone coefficient is the second one, and the first one
// stands in its place with the same value or none. An end of block sets ippLookupEnd, with the places of a
// coefficient before it counted above; ippLookupLong is set alone where there is nothing for the index or too
// much to drop.
struct IppAcLookup {
    std::uint32_t aEntries[1 << ippLookupBits];
    IppCodes codes;
};

inline constexpr std::uint32_t ippAcLongest = 18;
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
