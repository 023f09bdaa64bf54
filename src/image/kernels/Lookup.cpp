// The look-up tables of the MCU decoder, from the table of codes.

#include "image/kernels/McuRun.h"

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

// The value of nSize bits, 1 or more, that follow nSkip bits of an index (T.81 F.2.2.1).
std::int32_t ValueAt(std::uint32_t nIndex, std::uint32_t nSkip, std::uint32_t nSize) {
    const auto nRaw =
        static_cast<std::int32_t>(nIndex >> (ippLookupBits - nSkip - nSize) & ((1u << nSize) - 1));
    return nRaw >> (nSize - 1) != 0 ? nRaw : nRaw - (1 << nSize) + 1;
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
