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

IppStatus ippDecodeHuffmanSpecFill(const std::uint8_t* pBits, const std::uint8_t* pValues,
                                   ippiDecodeHuffmanSpec& huffman) noexcept {
    ClearSpec(huffman);
    if (!AssignCodes(pBits, pValues, huffman)) {
        ClearSpec(huffman);
        return ippStsHuffmanTableErr;
    }
    FillRunTable(huffman);
    return ippStsNoErr;
}

IppStatus ippiDecodeHuffmanSpecInit_JPEG_8u(const std::uint8_t* pBits, const std::uint8_t* pValues,
                                            ippiDecodeHuffmanSpec** ppSpec) {
    if (!pBits || !pValues || !ppSpec)
        return ippStsNullPtrErr;
    *ppSpec = static_cast<ippiDecodeHuffmanSpec*>(ippMalloc(sizeof(ippiDecodeHuffmanSpec)));
    if (!*ppSpec)
        return ippStsNullPtrErr;
    return ippDecodeHuffmanSpecFill(pBits, pValues, *::new (*ppSpec) ippiDecodeHuffmanSpec);
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

    std::uint32_t Run() const { return nSymbol >> 4; }
    std::uint32_t Size() const { return nSymbol & 15; }
    std::uint32_t Bits() const { return nLength + Size(); } // with those of the value
    bool IsEnd() const { return Size() == 0 && Run() != 15; }
};

// Lengths without codes have the limit of the next shorter one, so that no code is found there.
void FillCodes(const ippiDecodeHuffmanSpec& huffman, IppCodes& codes) {
    std::int32_t nLimit = 0;
    for (std::int32_t i = 0; i < 16; ++i) {
        const std::int32_t nLength = i + 1;
        if (huffman.aMaxCode[nLength] >= 0)
            nLimit = (huffman.aMaxCode[nLength] + 1) << (16 - nLength);
        codes.aLimits[i] = nLimit;
        codes.aOffsets[i] = huffman.aValueIndex[nLength] - huffman.aMinCode[nLength];
    }
    for (std::int32_t i = 0; i < 256; ++i)
        codes.aValues[i] = static_cast<std::uint8_t>(huffman.aValues[i]);
}

Code FirstCode(const IppCodes& codes, std::uint32_t nIndex) {
    const auto nLeft = static_cast<std::int32_t>(nIndex << (16 - ippLookupBits));
    for (std::uint32_t nLength = 1; nLength <= ippLookupBits; ++nLength) {
        if (nLeft < codes.aLimits[nLength - 1]) {
            const std::int32_t nValue = codes.aOffsets[nLength - 1] + (nLeft >> (16 - nLength));
            return {nLength, codes.aValues[nValue & 255]};
        }
    }
    return {};
}

constexpr std::uint32_t AcEntry(std::uint32_t nDrop, std::uint32_t nSecond, std::uint32_t nFirst,
                                std::uint32_t nSecondSize, std::int32_t nFirstValue) {
    return nDrop | nSecond << 6 | nFirst << 14 | nSecondSize << 18 |
           static_cast<std::uint32_t>(nFirstValue) << 22;
}

std::uint32_t AcEntry(const IppCodes& codes, std::uint32_t nIndex) {
    const Code first = FirstCode(codes, nIndex);
    if (first.nLength == 0 || first.Bits() > ippAcLongest || first.Size() > 9)
        return AcEntry(0, ippLookupLong, 0, 0, 0);
    if (first.IsEnd())
        return AcEntry(first.nLength, ippLookupEnd, 0, 0, 0);
    const std::uint32_t nUsed = first.Bits();
    if (first.Size() == 0)
        return AcEntry(nUsed, 15, 0, 0, 0);
    if (nUsed > ippLookupBits)
        return AcEntry(nUsed, first.Run(), first.Run(), first.Size(), 0);

    const std::uint32_t nRaw = nIndex >> (ippLookupBits - nUsed) & ((1u << first.Size()) - 1);
    const std::int32_t nValue = ValueOf(nRaw, first.Size());
    const Code second = FirstCode(codes, nIndex << nUsed & (kIndices - 1));
    const bool bFits = second.nLength != 0 && nUsed + second.nLength <= ippLookupBits &&
                       nUsed + second.Bits() <= ippAcLongest && second.Size() <= 9;
    if (bFits && second.IsEnd())
        return AcEntry(nUsed + second.nLength, ippLookupEnd + first.Run() + 1, first.Run(), 0, nValue);
    if (!bFits || second.Size() == 0)
        return AcEntry(nUsed, first.Run(), first.Run(), first.Size(), nValue);
    return AcEntry(nUsed + second.Bits(), first.Run() + 1 + second.Run(), first.Run(), second.Size(), nValue);
}

} // namespace

void ippDcLookupInit(const ippiDecodeHuffmanSpec& huffman, IppDcLookup& lookup) noexcept {
    FillCodes(huffman, lookup.codes);
    for (std::uint32_t nIndex = 0; nIndex < kIndices; ++nIndex) {
        const Code code = FirstCode(lookup.codes, nIndex);
        const bool bFits = code.nLength != 0 && code.Bits() <= ippDcLongest;
        lookup.aEntries[nIndex] = static_cast<std::uint16_t>(bFits ? code.Bits() | code.Size() << 8 : 0);
    }
}

void ippAcLookupInit(const ippiDecodeHuffmanSpec& huffman, IppAcLookup& lookup) noexcept {
    FillCodes(huffman, lookup.codes);
    for (std::uint32_t nIndex = 0; nIndex < kIndices; ++nIndex)
        lookup.aEntries[nIndex] = AcEntry(lookup.codes, nIndex);
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
