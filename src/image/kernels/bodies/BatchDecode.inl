// Whole MCUs of a sequential scan: entropy decoding from a window without stuffed bytes, two symbols a
// look-up, and each MCU's inverse transform straight behind it, which runs while the next bits are awaited.
//
// The window: the source without its stuffed bytes, and the bit reader over it, which needs no look at single
// bytes.
#pragma once

#include "image/kernels/Batch.h"
#include "image/kernels/bodies/Decode.inl"
#include "image/kernels/bodies/Transform.inl"

namespace KERNEL_TARGET {
namespace {

constexpr std::int32_t kLongestMcu = ippMaxMcuBlocks * ippWindowSlack; // bytes, without stuffed ones

// Takes in the source from nSrcPos on, as far as the room goes or a byte of 0xFF with anything but a stuffed
// byte behind it.
void FillWindow(IppBitWindow& window, const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t nSrcPos) {
    std::uint8_t* pOut = window.pBytes.get();
    std::uint8_t* const pOutEnd = pOut + window.nCapacity;
    const std::uint8_t* pNext = pSrc + nSrcPos;
    const std::uint8_t* pEnd = pSrc + nSrcSize;
    // Data that ends with a lone 0xFF fails at a place that hangs on how far ahead a reader looks; such an
    // end, and the longest MCU before it, is left to the block kernel.
    if (nSrcSize > nSrcPos && pEnd[-1] == 0xFF)
        pEnd -= std::min<std::ptrdiff_t>(pEnd - pNext, 2 * kLongestMcu + 4 * ippWindowSlack);
    window.bMore = false;
    while (pNext < pEnd) {
        const std::ptrdiff_t nRoom = std::min(pEnd - pNext, pOutEnd - pOut);
        if (nRoom < 2) {
            window.bMore = pEnd - pNext > nRoom;
            break;
        }
        const void* const pFound = std::memchr(pNext, 0xFF, static_cast<std::size_t>(nRoom));
        const std::ptrdiff_t nPlain = pFound ? static_cast<const std::uint8_t*>(pFound) - pNext : nRoom;
        std::memcpy(pOut, pNext, static_cast<std::size_t>(nPlain));
        pOut += nPlain;
        pNext += nPlain;
        if (!pFound)
            continue;
        if (pEnd - pNext < 2 || pNext[1] != 0)
            break;
        *pOut++ = 0xFF;
        pNext += 2;
    }
    std::memset(pOut, 0, ippWindowSlack);
    window.nBytes = static_cast<std::int32_t>(pOut - window.pBytes.get());
    window.nOffset = 0;
    window.nSrcPos = nSrcPos;
}

// Moves the cursor forward. Every 0xFF that it passes was two bytes in the source.
void MoveCursor(IppBitWindow& window, std::int32_t nOffset) {
    const std::uint8_t* pNext = window.pBytes.get() + window.nOffset;
    const std::uint8_t* const pEnd = window.pBytes.get() + nOffset;
    window.nSrcPos += nOffset - window.nOffset;
    while (const void* const pFound = std::memchr(pNext, 0xFF, static_cast<std::size_t>(pEnd - pNext))) {
        ++window.nSrcPos;
        pNext = static_cast<const std::uint8_t*>(pFound) + 1;
    }
    window.nOffset = nOffset;
}

// Moves the cursor to a place of the source that the block kernel has reached. False where the window does
// not hold it. Step by step, so that data which keeps leaving the fast way is not taken in again and again.
bool FollowCursor(IppBitWindow& window, std::int32_t nSrcPos) {
    if (window.nSrcPos < 0 || window.nSrcPos > nSrcPos)
        return false;
    while (window.nSrcPos < nSrcPos && window.nOffset < window.nBytes)
        window.nSrcPos += window.pBytes[static_cast<std::size_t>(window.nOffset++)] == 0xFF ? 2 : 1;
    return window.nSrcPos == nSrcPos;
}

class WindowReader {
public:
    WindowReader(const IppBitWindow& window, const ippiDecodeHuffmanState& state)
        : m_nHeld(std::uint64_t{state.nAccumulator} << 32), m_nBits(static_cast<std::uint32_t>(state.nBits)),
          m_pNext(window.pBytes.get() + window.nOffset) {}

    // Makes at least 56 bits available. Behind the window's bytes they are zeros, which Passed tells.
    void Refill() {
        std::uint64_t nWord;
        std::memcpy(&nWord, m_pNext, sizeof nWord);
        m_nHeld |= __builtin_bswap64(nWord) >> m_nBits;
        m_pNext += (63 - m_nBits) >> 3;
        m_nBits |= 56;
    }

    std::uint32_t Peek(std::uint32_t nCount) const {
        return static_cast<std::uint32_t>(m_nHeld >> (64 - nCount));
    }

    void Drop(std::uint32_t nCount) {
        m_nHeld <<= nCount & 63;
        m_nBits -= nCount;
    }

    std::int32_t Value(std::uint32_t nSize) {
        const std::uint32_t nRaw = Peek(nSize);
        Drop(nSize);
        return ReceiveExtend(nRaw, nSize);
    }

    // The next symbol, whose code has nLength bits or more, or -1 where no code fits.
    std::int32_t Symbol(const ippiDecodeHuffmanSpec& huffman, std::uint32_t nLength) {
        for (; nLength <= 16; ++nLength) {
            const auto nCode = static_cast<std::int32_t>(Peek(nLength));
            if (nCode <= huffman.aMaxCode[nLength]) {
                Drop(nLength);
                return huffman
                    .aValues[(huffman.aValueIndex[nLength] + nCode - huffman.aMinCode[nLength]) & 255];
            }
        }
        return -1;
    }

    // More bits were dropped than there are before pEnd.
    bool Passed(const std::uint8_t* pEnd) const {
        return m_pNext - pEnd > static_cast<std::ptrdiff_t>(m_nBits >> 3);
    }

    // Leaves what the block kernel can go on from: whole bytes go back into the window, those that were taken
    // from it.
    void Commit(IppBitWindow& window, std::int32_t& nSrcPos, ippiDecodeHuffmanState& state) const {
        const std::uint8_t* const pBegin = window.pBytes.get() + window.nOffset;
        const auto nBack = std::min<std::ptrdiff_t>(m_nBits >> 3, m_pNext - pBegin);
        MoveCursor(window, static_cast<std::int32_t>(m_pNext - nBack - window.pBytes.get()));
        nSrcPos = window.nSrcPos;
        state.nBits = static_cast<std::int32_t>(m_nBits) - static_cast<std::int32_t>(8 * nBack);
        const auto nHeld = static_cast<std::uint32_t>(m_nHeld >> 32);
        state.nAccumulator = state.nBits == 0 ? 0 : nHeld & ~std::uint32_t{0} << (32 - state.nBits);
    }

private:
    std::uint64_t m_nHeld; // the next bit topmost; below m_nBits bits stand the first ones of the next byte
    std::uint32_t m_nBits;
    const std::uint8_t* m_pNext;
};

// Decodes up to nCount units from the source's position on: decode(bits, pEnd, nDone) goes on behind the
// first nDone of them and returns how many are done then. No unit is longer than kLongestMcu. A window that
// ends a run by being used up in part is filled again, and then tried once more. Returns the units done.
template <typename Decode>
std::int32_t DecodeFromWindow(IppBitWindow& window, const std::uint8_t* pSrc, std::int32_t nSrcSize,
                              std::int32_t& nSrcPos, ippiDecodeHuffmanState& state, std::int32_t nCount,
                              Decode decode) {
    std::int32_t nDone = 0;
    for (bool bFresh = false; nDone < nCount;) {
        if (!FollowCursor(window, nSrcPos)) {
            FillWindow(window, pSrc, nSrcSize, nSrcPos);
            bFresh = true;
        }
        const std::uint8_t* const pEnd = window.pBytes.get() + window.nBytes;
        WindowReader bits(window, state);
        const std::int32_t nBefore = nDone;
        nDone = decode(bits, pEnd, nDone);
        bits.Commit(window, nSrcPos, state);
        // Only a window with too little in it for the longest MCU can be what ended the run.
        const bool bShort = window.bMore && window.nBytes - window.nOffset < kLongestMcu;
        if (nDone == nCount || !bShort || (bFresh && nDone == nBefore))
            break;
        window.nSrcPos = -1;
        bFresh = false;
    }
    return nDone;
}

// Zigzag order with room for every place that a look-up can name: those beyond the block are its last one,
// which is written again whenever that matters.
struct PaddedZigZag {
    std::uint8_t a[64 + 256];
};

constexpr PaddedZigZag MakePaddedZigZag() {
    PaddedZigZag order{};
    for (int i = 0; i < 64 + 256; ++i)
        order.a[i] = i < 64 ? g_aZigZag[i] : std::uint8_t{63};
    return order;
}

constexpr PaddedZigZag kPaddedZigZag = MakePaddedZigZag();

constexpr std::int32_t kNoBlock = -1;

// One AC symbol of those that a look-up did not give, at place nPlace, which moves behind it, to 64 at the
// block's end. False where it is not in the fast way's reach. nLast is the last place with a coefficient.
inline bool DecodeLongSymbol(WindowReader& bits, std::int16_t* pDst, const ippiDecodeHuffmanSpec& table,
                             std::uint64_t nEntry, std::uint32_t& nPlace, std::int32_t& nLast) {
    std::uint32_t nSymbol = nEntry >> 24 & 0xFF;
    const std::uint32_t nLength = nEntry >> 16 & 0xFF;
    const bool bLong = (nEntry >> 8 & 0xFF) == ippLookupLong;
    if (bLong && nLength != 0) {
        bits.Drop(nLength);
    } else {
        const std::int32_t nFound = bits.Symbol(table, bLong ? ippLookupBits + 1 : 1);
        if (nFound < 0)
            return false;
        nSymbol = static_cast<std::uint32_t>(nFound);
    }
    const std::uint32_t nRun = nSymbol >> 4 & 15;
    const std::uint32_t nSize = nSymbol & 15;
    if (nSize == 0) {
        nPlace = nRun == 15 ? nPlace + 16 : 64;
        return true;
    }
    nPlace += nRun;
    if (nPlace > 63)
        return false;
    pDst[kPaddedZigZag.a[nPlace]] = static_cast<std::int16_t>(bits.Value(nSize));
    nLast = static_cast<std::int32_t>(nPlace++);
    return true;
}

// The place in zigzag order of the block's last coefficient, or one behind it; kNoBlock where the fast way
// ends. Then pDst and nLastDc hold whatever was read.
[[gnu::always_inline]] inline std::int32_t
DecodeWindowBlock(WindowReader& bits, std::int16_t* pDst, std::int16_t& nLastDc, const IppMcuBlock& block) {
    StoreZeroBlock(pDst);
    bits.Refill();
    const std::uint32_t nDcEntry = block.pDcLookup->aEntries[bits.Peek(ippLookupBits)];
    bits.Drop(nDcEntry & 0xFF);
    if ((nDcEntry & ippDcLookupLong) == 0) {
        nLastDc = AddDc(nLastDc, static_cast<std::int32_t>(nDcEntry) >> 16);
    } else {
        std::int32_t nSize = static_cast<std::int32_t>(nDcEntry >> 16);
        if ((nDcEntry & 0xFF) == 0)
            nSize = bits.Symbol(*block.pDcTable, ippLookupBits + 1);
        if (nSize < 0)
            return kNoBlock;
        if ((nSize & 15) != 0)
            nLastDc = AddDc(nLastDc, bits.Value(static_cast<std::uint32_t>(nSize & 15)));
        bits.Refill();
    }
    pDst[0] = nLastDc;

    // A refill lasts for the DC look-up and four of these.
    static_assert(5 * ippLookupBits <= 56);
    const std::uint64_t* const pLookup = block.pAcLookup->aEntries;
    std::uint32_t nPlace = 1;
    for (;;) {
        std::uint64_t nEntry = 0;
        std::uint32_t nNext = 0;
#pragma GCC unroll 4
        for (int i = 0; i < 4; ++i) {
            nEntry = pLookup[bits.Peek(ippLookupBits)];
            pDst[kPaddedZigZag.a[nPlace + (nEntry >> 24 & 0xFF)]] = static_cast<std::int16_t>(nEntry >> 48);
            pDst[kPaddedZigZag.a[nPlace + (nEntry >> 16 & 0xFF)]] = static_cast<std::int16_t>(nEntry >> 32);
            nNext = nPlace + (nEntry >> 8 & 0xFF);
            if (nNext >= 64)
                break;
            bits.Drop(nEntry & 0xFF);
            nPlace = nNext;
        }
        if (nNext >= 64) {
            // An end of block, with the coefficient before it not in the last place: nothing would follow
            // that.
            const bool bEnd = nNext - ippLookupEnd < 64;
            if (bEnd || nNext == 64) {
                bits.Drop(nEntry & 0xFF);
                return bEnd ? static_cast<std::int32_t>(nNext - ippLookupEnd - 1) : 63;
            }
            // Two symbols of which the first may end the block already, or a long one: one by one.
            bits.Refill();
            std::int32_t nLast = static_cast<std::int32_t>(nPlace) - 1;
            if (!DecodeLongSymbol(bits, pDst, *block.pAcTable, nEntry, nPlace, nLast))
                return kNoBlock;
            if (nPlace >= 64)
                return nLast;
        }
        bits.Refill();
    }
}

// The inverse transforms of nBlocks blocks, two at a time: of one MCU, or with bOdd of up to two.
template <bool bOdd>
void ReconstructMcus(const IppMcuRow& row, std::int32_t nFirst, std::int32_t nBlocks,
                     const std::int32_t* pLast) {
    const std::int16_t* const pBlocks = row.pCoefficients + std::ptrdiff_t{nFirst} * row.nBlocks * 64;
    const auto task = [&row, pBlocks, nFirst](std::int32_t i) {
        const std::int32_t nSecond = bOdd && i >= row.nBlocks ? 1 : 0;
        const IppMcuBlock& block = row.aBlocks[i - nSecond * row.nBlocks];
        return BlockTask{pBlocks + 64 * i, block.pSteps,
                         block.pDst + std::ptrdiff_t{nFirst + nSecond} * block.nDstAdvance, block.nDstStep};
    };
    std::int32_t i = 0;
    for (; i + 1 < nBlocks; i += 2)
        InverseTwo(task(i), pLast[i], task(i + 1), pLast[i + 1]);
    if (bOdd && i < nBlocks)
        InverseOne(task(i), pLast[i]);
}

// MCUs nFirst to nEnd, as far as the window and the fast way go; returns the one behind the last. With bOdd,
// an odd number of blocks to an MCU, every other MCU waits for the next one with its transforms.
template <bool bOdd>
std::int32_t DecodeRun(WindowReader& reader, const std::uint8_t* pEnd, IppMcuRow& row, std::int32_t nFirst,
                       std::int32_t nEnd) {
    WindowReader bits = reader;
    std::int32_t nMcu = nFirst;
    bool bWaiting = false;
    std::int32_t anLast[2 * ippMaxMcuBlocks];
    for (; nMcu < nEnd; ++nMcu) {
        std::int16_t* const pBlocks = row.pCoefficients + std::ptrdiff_t{nMcu} * row.nBlocks * 64;
        std::int32_t* const pLast = anLast + (bWaiting ? row.nBlocks : 0);
        WindowReader ahead = bits;
        std::int16_t anLastDc[4];
        std::memcpy(anLastDc, row.anLastDc, sizeof anLastDc);
        std::int32_t i = 0;
        for (; i < row.nBlocks; ++i) {
            const IppMcuBlock& block = row.aBlocks[i];
            pLast[i] = DecodeWindowBlock(ahead, pBlocks + 64 * i, anLastDc[block.nComponent & 3], block);
            if (pLast[i] == kNoBlock || ahead.Passed(pEnd))
                break;
        }
        if (i < row.nBlocks)
            break;
        bits = ahead;
        std::memcpy(row.anLastDc, anLastDc, sizeof anLastDc);
        if constexpr (bOdd) {
            if (bWaiting)
                ReconstructMcus<bOdd>(row, nMcu - 1, 2 * row.nBlocks, anLast);
            bWaiting = !bWaiting;
        } else {
            ReconstructMcus<bOdd>(row, nMcu, row.nBlocks, anLast);
        }
    }
    if (bOdd && bWaiting)
        ReconstructMcus<bOdd>(row, nMcu - 1, row.nBlocks, anLast);
    reader = bits;
    return nMcu;
}

} // namespace

IppStatus ippxDecodeMcus_1u8u(const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
                              const std::int32_t* pMarker, ippiDecodeHuffmanState* pState,
                              IppBitWindow* pWindow, IppMcuRow* pRow, std::int32_t nFirst, std::int32_t nMcus,
                              std::int32_t* pDone) {
    if (!pSrc || !pSrcCurrPos || !pMarker || !pState || !pWindow || !pWindow->pBytes || !pRow || !pDone)
        return ippStsNullPtrErr;
    if (nSrcSize < 0 || *pSrcCurrPos < 0 || nFirst < 0 || pRow->nBlocks < 1 ||
        pRow->nBlocks > ippMaxMcuBlocks)
        return ippStsBadArgument;
    *pDone = 0;
    // With a marker in hand nothing is taken in, and what is held is for the block kernel.
    if (*pMarker != 0 || *pSrcCurrPos > nSrcSize)
        return ippStsNoErr;

    const auto decode = pRow->nBlocks % 2 != 0 ? DecodeRun<true> : DecodeRun<false>;
    *pDone = DecodeFromWindow(*pWindow, pSrc, nSrcSize, *pSrcCurrPos, *pState, nMcus,
                              [=](WindowReader& bits, const std::uint8_t* pEnd, std::int32_t nBegin) {
                                  return decode(bits, pEnd, *pRow, nFirst + nBegin, nFirst + nMcus) - nFirst;
                              });
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
