// Tables and state of the encoding kernels.

#include "image/kernels/Tables.h"

#include <algorithm>
#include <cstring>
#include <new>

IppStatus ippiQuantFwdRawTableInit_JPEG_8u(std::uint8_t* pRawTable, std::int32_t nQuality) {
    if (!pRawTable)
        return ippStsNullPtrErr;
    if (nQuality < 1)
        return ippStsBadArgument;
    // From 100 on every step becomes 1; far above, the factor of the formula would leave 32 bits.
    const std::int32_t nFactor = nQuality < 50 ? 5000 / nQuality : nQuality < 100 ? 200 - 2 * nQuality : 0;
    for (int i = 0; i < 64; ++i) {
        const std::int32_t nStep = (pRawTable[i] * nFactor + 50) / 100;
        pRawTable[i] = static_cast<std::uint8_t>(nStep < 1 ? 1 : nStep > 255 ? 255 : nStep);
    }
    return ippStsNoErr;
}

IppStatus ippiQuantFwdTableInit_JPEG_8u16u(const std::uint8_t* pRawTable, std::uint16_t* pTable) {
    if (!pRawTable || !pTable)
        return ippStsNullPtrErr;
    if (std::memchr(pRawTable, 0, 64))
        return ippStsBadArgument;
    for (int i = 0; i < 64; ++i) {
        // No step of a byte makes a tie: 65536 has no odd divisor above 1.
        const std::uint32_t nStep = pRawTable[i];
        pTable[g_aZigZag[i]] = static_cast<std::uint16_t>((65536 + nStep) / (2 * nStep));
    }
    return ippStsNoErr;
}

namespace {

// Canonical codes (T.81 C.2). False when the lengths over-fill the code space.
bool AssignEncoderCodes(const std::uint8_t* pBits, const std::uint8_t* pValues,
                        ippiEncodeHuffmanSpec& huffman) {
    std::uint32_t nCode = 0;
    std::uint32_t nIndex = 0;
    for (std::uint32_t nLength = 1; nLength <= 16; ++nLength, nCode <<= 1) {
        const std::uint32_t nCount = pBits[nLength - 1];
        if (nIndex + nCount > 256 || nCode + nCount > 1u << nLength)
            return false;
        for (std::uint32_t i = 0; i < nCount; ++i, ++nCode, ++nIndex) {
            const std::uint32_t nSymbol = pValues[nIndex];
            const std::uint32_t nSize = nSymbol & 15;
            huffman.aCode[nSymbol] = nLength << 16 | nCode;
            if (nSize <= 11)
                huffman.aWhole[nSymbol] = nCode << nSize << 5 | nLength;
        }
    }
    return true;
}

bool HasAll(const ippiEncodeHuffmanSpec& huffman, std::uint32_t nFirst, std::uint32_t nCount) {
    bool bAll = true;
    for (std::uint32_t i = nFirst; i < nFirst + nCount; ++i)
        bAll = bAll && huffman.aCode[i] != 0;
    return bAll;
}

void NoteCoverage(ippiEncodeHuffmanSpec& huffman) {
    huffman.bBaselineDc = HasAll(huffman, 0, 12);
    huffman.bBaselineAc = huffman.aCode[0x00] != 0 && huffman.aCode[0xF0] != 0;
    for (std::uint32_t nRun = 0; nRun < 16; ++nRun)
        huffman.bBaselineAc = huffman.bBaselineAc && HasAll(huffman, nRun << 4 | 1, 10);
}

} // namespace

IppStatus ippiEncodeHuffmanSpecInit_JPEG_8u(const std::uint8_t* pBits, const std::uint8_t* pValues,
                                            ippiEncodeHuffmanSpec** ppSpec) {
    if (!pBits || !pValues || !ppSpec)
        return ippStsNullPtrErr;
    void* const pBlock = ippMalloc(sizeof(ippiEncodeHuffmanSpec));
    *ppSpec = pBlock ? ::new (pBlock) ippiEncodeHuffmanSpec{} : nullptr;
    if (!pBlock)
        return ippStsNullPtrErr;
    ippiEncodeHuffmanSpec& huffman = **ppSpec;
    if (!AssignEncoderCodes(pBits, pValues, huffman)) {
        huffman = {};
        return ippStsHuffmanTableErr;
    }
    NoteCoverage(huffman);
    return ippStsNoErr;
}

IppStatus ippiEncodeHuffmanSpecFree_JPEG_8u(ippiEncodeHuffmanSpec* pSpec) {
    return ippRelease(pSpec);
}

namespace {

constexpr int kPseudoSymbol = 256; // keeps the code of all ones unused
constexpr int kLongestBeforeLimit = 32;

// The symbol with the least count above zero, of equals the highest one, except nOther; -1 for none.
int LeastFrequent(const std::int64_t (&aCount)[257], int nOther) {
    int nLeast = -1;
    for (int i = 0; i < 257; ++i) {
        if (i != nOther && aCount[i] != 0 && (nLeast < 0 || aCount[i] <= aCount[nLeast]))
            nLeast = i;
    }
    return nLeast;
}

// Code lengths by merging the two least frequent groups until one is left (T.81 Figure K.1).
void FindCodeSizes(std::int64_t (&aCount)[257], int (&aSize)[257]) {
    int aNext[257];
    std::fill_n(aNext, 257, -1);
    std::fill_n(aSize, 257, 0);
    for (;;) {
        int nFirst = LeastFrequent(aCount, -1);
        int nSecond = LeastFrequent(aCount, nFirst);
        if (nSecond < 0)
            return;
        aCount[nFirst] += aCount[nSecond];
        aCount[nSecond] = 0;
        for (++aSize[nFirst]; aNext[nFirst] >= 0; ++aSize[nFirst])
            nFirst = aNext[nFirst];
        aNext[nFirst] = nSecond;
        for (++aSize[nSecond]; aNext[nSecond] >= 0; ++aSize[nSecond])
            nSecond = aNext[nSecond];
    }
}

// Moves pairs of codes up until none is longer than 16 bits, and drops the longest one, which is the
// pseudo-symbol's (T.81 Figure K.3).
void LimitLengths(int (&aOfLength)[kLongestBeforeLimit + 1]) {
    for (int i = kLongestBeforeLimit; i > 16; --i) {
        while (aOfLength[i] > 0) {
            int j = i - 2;
            while (aOfLength[j] == 0)
                --j;
            aOfLength[i] -= 2;
            ++aOfLength[i - 1];
            aOfLength[j + 1] += 2;
            --aOfLength[j];
        }
    }
    int nLongest = 16;
    while (nLongest > 0 && aOfLength[nLongest] == 0)
        --nLongest;
    --aOfLength[nLongest]; // of length 0 when no symbol but the pseudo-symbol is there
}

} // namespace

IppStatus ippiEncodeHuffmanRawTableInit_JPEG_8u(const std::uint32_t* pStatistics, std::uint8_t* pBits,
                                                std::uint8_t* pValues) {
    if (!pStatistics || !pBits || !pValues)
        return ippStsNullPtrErr;
    std::int64_t aCount[257];
    std::copy_n(pStatistics, 256, aCount);
    aCount[kPseudoSymbol] = 1;
    int aSize[257];
    FindCodeSizes(aCount, aSize);
    int aOfLength[kLongestBeforeLimit + 1] = {};
    for (const int nSize : aSize) {
        if (nSize > kLongestBeforeLimit)
            return ippStsHuffmanTableErr;
        if (nSize > 0)
            ++aOfLength[nSize];
    }
    LimitLengths(aOfLength);
    for (int i = 0; i < 16; ++i)
        pBits[i] = static_cast<std::uint8_t>(aOfLength[i + 1]);
    std::uint8_t* pNext = pValues;
    for (int nSize = 1; nSize <= kLongestBeforeLimit; ++nSize) {
        for (int i = 0; i < 256; ++i) {
            if (aSize[i] == nSize)
                *pNext++ = static_cast<std::uint8_t>(i);
        }
    }
    std::fill(pNext, pValues + 256, std::uint8_t{0});
    return ippStsNoErr;
}

IppStatus ippiEncodeHuffmanStateInitAlloc_JPEG_8u(ippiEncodeHuffmanState** ppState) {
    if (!ppState)
        return ippStsNullPtrErr;
    void* const pBlock = ippMalloc(sizeof(ippiEncodeHuffmanState));
    *ppState = pBlock ? ::new (pBlock) ippiEncodeHuffmanState{} : nullptr;
    return pBlock ? ippStsNoErr : ippStsNullPtrErr;
}

IppStatus ippiEncodeHuffmanStateInit_JPEG_8u(ippiEncodeHuffmanState* pState) {
    if (!pState)
        return ippStsNullPtrErr;
    pState->nAccumulator = 0;
    pState->nBits = 0;
    pState->nEobRun = 0;
    pState->nCorrections = 0;
    return ippStsNoErr;
}

IppStatus ippiEncodeHuffmanStateFree_JPEG_8u(ippiEncodeHuffmanState* pState) {
    return ippRelease(pState);
}
