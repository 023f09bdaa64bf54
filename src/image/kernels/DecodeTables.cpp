// Tables and state of the decoding kernels.

#include "image/kernels/Tables.h"

#include <algorithm>
#include <cstring>
#include <new>

IppStatus ippiQuantInvTableInit_JPEG_8u16u(const std::uint8_t* pRawTable, std::uint16_t* pTable) {
    if (!pRawTable || !pTable)
        return ippStsNullPtrErr;
    for (int i = 0; i < 64; ++i)
        pTable[g_aZigZag[i]] = pRawTable[i];
    return ippStsNoErr;
}

namespace {

// A value of nSize bits, 1 or more (T.81 F.2.2.1).
std::int32_t ValueOf(std::uint32_t nRaw, std::uint32_t nSize) {
    const auto nValue = static_cast<std::int32_t>(nRaw);
    return nRaw >> (nSize - 1) != 0 ? nValue : nValue - (1 << nSize) + 1;
}

// Canonical codes (T.81 C.2 and F.2.2.3). False when the lengths over-fill the code space.
bool AssignCodes(const std::uint8_t* pBits, const std::uint8_t* pValues, ippiDecodeHuffmanSpec& huffman) {
    std::int32_t nCode = 0;
    std::int32_t nIndex = 0;
    for (std::int32_t nLength = 1; nLength <= 16; ++nLength, nCode <<= 1) {
        const std::int32_t nCount = pBits[nLength - 1];
        if (nIndex + nCount > 256 || nCode + nCount > 1 << nLength)
            return false;
        if (nCount == 0)
            continue;
        huffman.aValueIndex[nLength] = nIndex;
        huffman.aMinCode[nLength] = nCode;
        for (std::int32_t i = 0; i < nCount; ++i, ++nCode, ++nIndex) {
            huffman.aValues[nIndex] = pValues[nIndex];
            if (nLength <= 8) {
                const auto nEntry = static_cast<std::uint32_t>(nLength << 16 | pValues[nIndex]);
                std::fill_n(huffman.aFast + (nCode << (8 - nLength)), 1 << (8 - nLength), nEntry);
            }
        }
        huffman.aMaxCode[nLength] = nCode - 1;
    }
    return true;
}

// A table in which no code is found.
void ClearSpec(ippiDecodeHuffmanSpec& huffman) {
    std::memset(static_cast<void*>(&huffman), 0, sizeof huffman);
    std::fill_n(huffman.aMaxCode, 17, -1);
    huffman.aMaxCode[17] = 0x7FFFFFFF;
}

// The AC coefficients that ippDecodeRunBits bits hold whole: code (here of up to 8 bits) and value. Each code
// fills the entries that begin with it.
void FillRunTable(ippiDecodeHuffmanSpec& huffman) {
    constexpr std::uint32_t kBits = ippDecodeRunBits;
    for (std::uint32_t nFirst = 0; nFirst < 256;) {
        const std::uint32_t nFast = huffman.aFast[nFirst];
        if (nFast == 0) {
            ++nFirst;
            continue;
        }
        const std::uint32_t nLength = nFast >> 16;
        const std::uint32_t nRun = nFast >> 4 & 15;
        const std::uint32_t nSize = nFast & 15;
        std::uint32_t* pEntries = huffman.aRun + (nFirst << (kBits - 8));
        nFirst += 1u << (8 - nLength);
        if (nSize == 0) {
            std::fill_n(pEntries, 1u << (kBits - nLength), (nRun == 15 ? 16u : 64u) << 8 | nLength);
        } else if (nLength + nSize <= kBits) {
            const std::uint32_t nEach = 1u << (kBits - nLength - nSize);
            for (std::uint32_t nRaw = 0; nRaw < 1u << nSize; ++nRaw, pEntries += nEach) {
                const auto nValue = static_cast<std::uint32_t>(ValueOf(nRaw, nSize));
                std::fill_n(pEntries, nEach, nValue << 16 | (nRun + 1) << 8 | (nLength + nSize));
            }
        }
    }
}

} // namespace

IppStatus ippiDecodeHuffmanSpecInit_JPEG_8u(const std::uint8_t* pBits, const std::uint8_t* pValues,
                                            ippiDecodeHuffmanSpec** ppSpec) {
    if (!pBits || !pValues || !ppSpec)
        return ippStsNullPtrErr;
    *ppSpec = static_cast<ippiDecodeHuffmanSpec*>(ippMalloc(sizeof(ippiDecodeHuffmanSpec)));
    if (!*ppSpec)
        return ippStsNullPtrErr;
    ippiDecodeHuffmanSpec& huffman = *::new (*ppSpec) ippiDecodeHuffmanSpec;
    ClearSpec(huffman);
    if (!AssignCodes(pBits, pValues, huffman)) {
        ClearSpec(huffman);
        return ippStsHuffmanTableErr;
    }
    FillRunTable(huffman);
    return ippStsNoErr;
}

IppStatus ippiDecodeHuffmanSpecFree_JPEG_8u(ippiDecodeHuffmanSpec* pSpec) {
    return ippRelease(pSpec);
}

namespace {

constexpr std::uint32_t kIndices = 1u << ippLookupBits;

// A code that the index bits hold; a length of 0 where they hold none.
struct Code {
    std::uint32_t nLength = 0;
    std::uint32_t nSymbol = 0;
};

Code FirstCode(const ippiDecodeHuffmanSpec& huffman, std::uint32_t nIndex) {
    if (const std::uint32_t nEntry = huffman.aFast[nIndex >> (ippLookupBits - 8)])
        return {nEntry >> 16, nEntry & 0xFF};
    for (std::int32_t nLength = 9; nLength <= ippLookupBits; ++nLength) {
        const auto nCode = static_cast<std::int32_t>(nIndex >> (ippLookupBits - nLength));
        if (nCode <= huffman.aMaxCode[nLength]) {
            const std::int32_t nValue = huffman.aValueIndex[nLength] + nCode - huffman.aMinCode[nLength];
            return {static_cast<std::uint32_t>(nLength), huffman.aValues[nValue & 255] & 0xFFu};
        }
    }
    return {};
}

// The value of nSize bits that follow nSkip bits of an index.
std::int32_t ValueAt(std::uint32_t nIndex, std::uint32_t nSkip, std::uint32_t nSize) {
    return ValueOf(nIndex >> (ippLookupBits - nSkip - nSize) & ((1u << nSize) - 1), nSize);
}

constexpr std::uint64_t Entry(std::uint32_t nDrop, std::uint32_t nAdvance, std::uint32_t nFirst,
                              std::uint32_t nSecond, std::int32_t nFirstValue, std::int32_t nSecondValue) {
    return std::uint64_t{nDrop} | std::uint64_t{nAdvance} << 8 | std::uint64_t{nFirst} << 16 |
           std::uint64_t{nSecond} << 24 | std::uint64_t{static_cast<std::uint16_t>(nFirstValue)} << 32 |
           std::uint64_t{static_cast<std::uint16_t>(nSecondValue)} << 48;
}

std::uint64_t AcEntry(const ippiDecodeHuffmanSpec& huffman, std::uint32_t nIndex) {
    const Code first = FirstCode(huffman, nIndex);
    const std::uint32_t nRun = first.nSymbol >> 4;
    const std::uint32_t nSize = first.nSymbol & 15;
    const std::uint32_t nUsed = first.nLength + nSize;
    if (first.nLength == 0 || nUsed > ippLookupBits)
        return Entry(0, ippLookupLong, first.nLength, first.nSymbol, 0, 0);
    if (nSize == 0)
        return Entry(nUsed, nRun == 15 ? 16 : ippLookupEnd, 0, 0, 0, 0);

    const std::int32_t nValue = ValueAt(nIndex, first.nLength, nSize);
    const Code second = FirstCode(huffman, nIndex << nUsed & (kIndices - 1));
    const std::uint32_t nSecondRun = second.nSymbol >> 4;
    const std::uint32_t nSecondSize = second.nSymbol & 15;
    const std::uint32_t nAll = nUsed + second.nLength + nSecondSize;
    const bool bEnd = nSecondSize == 0 && nSecondRun != 15;
    if (second.nLength == 0 || nAll > ippLookupBits || (nSecondSize == 0 && !bEnd))
        return Entry(nUsed, nRun + 1, nRun, nRun, nValue, nValue);
    if (bEnd)
        return Entry(nAll, ippLookupEnd + nRun + 1, nRun, nRun, nValue, nValue);
    const std::uint32_t nPlace = nRun + 1 + nSecondRun;
    return Entry(nAll, nPlace + 1, nRun, nPlace, nValue,
                 ValueAt(nIndex, nUsed + second.nLength, nSecondSize));
}

} // namespace

void ippDcLookupInit(const ippiDecodeHuffmanSpec& huffman, IppDcLookup& lookup) noexcept {
    for (std::uint32_t nIndex = 0; nIndex < kIndices; ++nIndex) {
        const Code code = FirstCode(huffman, nIndex);
        const std::uint32_t nSize = code.nSymbol & 15;
        const std::uint32_t nAll = code.nLength + nSize;
        std::uint32_t nEntry = code.nSymbol << 16 | ippDcLookupLong | code.nLength;
        if (code.nLength != 0 && nAll <= ippLookupBits) {
            const std::int32_t nValue = nSize == 0 ? 0 : ValueAt(nIndex, code.nLength, nSize);
            nEntry = static_cast<std::uint32_t>(nValue) << 16 | nAll;
        }
        lookup.aEntries[nIndex] = nEntry;
    }
}

void ippAcLookupInit(const ippiDecodeHuffmanSpec& huffman, IppAcLookup& lookup) noexcept {
    for (std::uint32_t nIndex = 0; nIndex < kIndices; ++nIndex)
        lookup.aEntries[nIndex] = AcEntry(huffman, nIndex);
}

IppStatus ippiDecodeHuffmanStateInitAlloc_JPEG_8u(ippiDecodeHuffmanState** ppState) {
    if (!ppState)
        return ippStsNullPtrErr;
    void* const pBlock = ippMalloc(sizeof(ippiDecodeHuffmanState));
    *ppState = pBlock ? ::new (pBlock) ippiDecodeHuffmanState{} : nullptr;
    return pBlock ? ippStsNoErr : ippStsNullPtrErr;
}

IppStatus ippiDecodeHuffmanStateInit_JPEG_8u(ippiDecodeHuffmanState* pState) {
    if (!pState)
        return ippStsNullPtrErr;
    *pState = {};
    return ippStsNoErr;
}

IppStatus ippiDecodeHuffmanStateFree_JPEG_8u(ippiDecodeHuffmanState* pState) {
    return ippRelease(pState);
}
