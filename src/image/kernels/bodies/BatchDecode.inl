// Whole MCUs of a sequential scan: entropy decoding from a window without stuffed bytes, two symbols a
// look-up, and the inverse transform of as many blocks as a vector holds, which runs while the next bits are
// awaited.
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
        std::ptrdiff_t nPlain = std::min(pEnd - pNext, pOutEnd - pOut);
        if (nPlain == 0) {
            window.bMore = true;
            break;
        }
        if (nPlain >= kScan) {
            const std::uint32_t nStuffed = FindStuffed(pNext);
            std::memcpy(pOut, pNext, kScan);
            nPlain = nStuffed != 0 ? __builtin_ctz(nStuffed) : kScan;
        } else {
            *pOut = *pNext;
            nPlain = *pNext != 0xFF ? 1 : 0;
        }
        pOut += nPlain;
        pNext += nPlain;
        if (nPlain != 0)
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
    static_assert(kScan <= ippWindowSlack);
    std::int32_t nStuffed = 0;
    for (std::int32_t nAt = window.nOffset; nAt < nOffset; nAt += kScan) {
        std::uint32_t nFound = FindStuffed(window.pBytes.get() + nAt);
        if (nOffset - nAt < kScan)
            nFound &= (1u << (nOffset - nAt)) - 1;
        nStuffed += __builtin_popcount(nFound);
    }
    window.nSrcPos += nOffset - window.nOffset + nStuffed;
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

    // The value of the last nSize, 0 to 15, of the next nCount bits (T.81 F.2.2.1), by arithmetic alone:
    // signs cannot be foreseen.
    std::int32_t ValueBefore(std::uint32_t nCount, std::uint32_t nSize) const {
        const auto nMask = static_cast<std::int32_t>((1u << nSize) - 1);
        const std::int32_t nRaw = static_cast<std::int32_t>(m_nHeld >> ((64 - nCount) & 63)) & nMask;
        return nRaw - (nMask & ((nRaw - (nMask >> 1) - 1) >> 31));
    }

    // The next symbol of codes of any length, or -1 where no code fits.
    std::int32_t Symbol(const IppCodes& codes) {
        const auto nLeft = static_cast<std::int32_t>(Peek(16));
        std::int32_t nShorter = 0;
        for (const std::int32_t nLimit : codes.aLimits)
            nShorter += nLeft >= nLimit ? 1 : 0;
        if (nShorter == 16)
            return -1;
        Drop(static_cast<std::uint32_t>(nShorter) + 1);
        return codes.aValues[(codes.aOffsets[nShorter] + (nLeft >> (15 - nShorter))) & 255];
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

// Where a coefficient goes, by its place in zigzag order, in a block that stands in a group of nGroup. There
// is room for every place that a look-up can name: those beyond the block are its last one, which is written
// again whenever that matters.
struct PaddedZigZag {
    std::uint8_t a[64 + 256];
};

template <int nGroup>
constexpr PaddedZigZag MakePaddedZigZag() {
    PaddedZigZag order{};
    for (int i = 0; i < 64 + 256; ++i) {
        const int nNatural = i < 64 ? g_aZigZag[i] : 63;
        order.a[i] = static_cast<std::uint8_t>((nNatural & ~7) * nGroup | (nNatural & 7));
    }
    return order;
}

template <int nGroup>
constexpr PaddedZigZag kPaddedZigZag = MakePaddedZigZag<nGroup>();

constexpr std::int32_t kNoBlock = -1;

// One AC symbol by itself, at place nPlace, which moves behind it, to 64 at the block's end. False where it
// is not in the fast way's reach. nLast is the last place with a coefficient.
template <int nGroup>
inline bool DecodeLongSymbol(WindowReader& bits, std::int16_t* pDst, const IppCodes& codes,
                             std::uint32_t& nPlace, std::int32_t& nLast) {
    const std::int32_t nSymbol = bits.Symbol(codes);
    if (nSymbol < 0)
        return false;
    const std::uint32_t nRun = static_cast<std::uint32_t>(nSymbol) >> 4;
    const std::uint32_t nSize = static_cast<std::uint32_t>(nSymbol) & 15;
    if (nSize == 0) {
        nPlace = nRun == 15 ? nPlace + 16 : 64;
        return true;
    }
    nPlace += nRun;
    if (nPlace > 63)
        return false;
    pDst[kPaddedZigZag<nGroup>.a[nPlace]] = static_cast<std::int16_t>(bits.Value(nSize));
    nLast = static_cast<std::int32_t>(nPlace++);
    return true;
}

// The DC difference, or kNoDifference where no code fits.
constexpr std::int32_t kNoDifference = INT32_MAX;

inline std::int32_t DecodeDc(WindowReader& bits, const IppDcLookup& lookup) {
    const std::uint32_t nEntry = lookup.aEntries[bits.Peek(ippLookupBits)];
    if (nEntry != 0) [[likely]] {
        const std::int32_t nDifference = bits.ValueBefore(nEntry & 0xFF, nEntry >> 8);
        bits.Drop(nEntry & 0xFF);
        return nDifference;
    }
    const std::int32_t nSymbol = bits.Symbol(lookup.codes);
    if (nSymbol < 0)
        return kNoDifference;
    const auto nSize = static_cast<std::uint32_t>(nSymbol & 15);
    const std::int32_t nDifference = nSize == 0 ? 0 : bits.Value(nSize);
    bits.Refill();
    return nDifference;
}

// The place in zigzag order of the block's last coefficient, or one behind it; kNoBlock where the fast way
// ends. Then pDst and nLastDc hold whatever was read. The block comes as zeros.
template <int nGroup>
[[gnu::always_inline]] inline std::int32_t
DecodeWindowBlock(WindowReader& bits, std::int16_t* pDst, std::int16_t& nLastDc, const IppMcuBlock& block) {
    bits.Refill();
    const std::int32_t nDifference = DecodeDc(bits, *block.pDcLookup);
    if (nDifference == kNoDifference)
        return kNoBlock;
    nLastDc = AddDc(nLastDc, nDifference);
    pDst[0] = nLastDc;

    // A refill lasts for the DC difference and two look-ups, or for three of those.
    static_assert(ippDcLongest + 2 * ippAcLongest <= 56 && 3 * ippAcLongest <= 56);
    const std::uint32_t* const pLookup = block.pAcLookup->aEntries;
    std::uint32_t nPlace = 1;
    std::int32_t nLookups = 2;
    for (;;) {
        std::uint32_t nEntry = 0;
        std::uint32_t nNext = 0;
        for (; nLookups > 0; --nLookups) {
            nEntry = pLookup[bits.Peek(ippLookupBits)];
            const std::uint32_t nDrop = nEntry & 63;
            const std::uint32_t nSecond = nPlace + (nEntry >> 6 & 0xFF);
            pDst[kPaddedZigZag<nGroup>.a[nPlace + (nEntry >> 14 & 15)]] =
                static_cast<std::int16_t>(static_cast<std::int32_t>(nEntry) >> 22);
            pDst[kPaddedZigZag<nGroup>.a[nSecond]] =
                static_cast<std::int16_t>(bits.ValueBefore(nDrop, nEntry >> 18 & 15));
            nNext = nSecond + 1;
            if (nNext >= 64)
                break;
            bits.Drop(nDrop);
            nPlace = nNext;
        }
        nLookups = 3;
        if (nNext >= 64) {
            // An end of block, with the coefficient before it not in the last place: nothing would follow
            // that.
            const std::uint32_t nLast = nNext - ippLookupEnd - 2;
            if (nLast < 63 || nNext == 64) {
                bits.Drop(nEntry & 63);
                return nLast < 63 ? static_cast<std::int32_t>(nLast) : 63;
            }
            // Two symbols of which the first may end the block already, or a long one: one by one.
            bits.Refill();
            std::int32_t nLastOne = static_cast<std::int32_t>(nPlace) - 1;
            if (!DecodeLongSymbol<nGroup>(bits, pDst, block.pAcLookup->codes, nPlace, nLastOne))
                return kNoBlock;
            if (nPlace >= 64)
                return nLastOne;
        }
        bits.Refill();
    }
}

inline BlockTarget TargetOf(const IppMcuBlock& block, std::int32_t nMcu) {
    return {block.pDst + std::ptrdiff_t{nMcu} * block.nDstAdvance, block.nDstStep};
}

// Asks for the memory of the block below, which the next row of MCUs writes to: a picture's memory is another
// thread's, or from long ago. Eight blocks side by side share cache lines, and each asks for one row of them.
// Nothing is read, so that what lies below the last row need not be there.
inline void FetchBelow(const BlockTarget& target, std::int64_t nBelow) {
    const auto nAddress = reinterpret_cast<std::uintptr_t>(target.pDst);
    const auto nRow = static_cast<std::int64_t>(nAddress >> 3 & 7);
    const std::uintptr_t nLine = nAddress + static_cast<std::uintptr_t>(nBelow + nRow * target.nStep);
    __builtin_prefetch(reinterpret_cast<const void*>(nLine), 1);
}

// Blocks on the way to their transforms, in groups by quantiser. A full group is transformed when the next
// block has been decoded: its last coefficients have arrived in the cache by then, and the loads of whole
// rows need not wait for them.
class GroupedOutput {
public:
    static constexpr int nGroup = BlockGroup::nMost;

    explicit GroupedOutput(const IppMcuRow& row) : m_row(row) {
        for (std::int32_t i = 0; i < row.nBlocks; ++i) {
            std::int32_t n = 0;
            while (n < m_nQueues && m_aQueues[n].pSteps != row.aBlocks[i].pSteps)
                ++n;
            if (n == m_nQueues) {
                Queue& queue = m_aQueues[m_nQueues++];
                queue.pSteps = row.aBlocks[i].pSteps;
                std::memset(queue.aGroups, 0, sizeof queue.aGroups);
                queue.pFilling = queue.aGroups;
            }
            m_apQueues[i] = &m_aQueues[n];
        }
    }

    // Where block i of an MCU is decoded to.
    std::int16_t* Block(std::int32_t, std::int32_t i) const {
        BlockGroup& group = *m_apQueues[i]->pFilling;
        return group.aCoefficients + 8 * group.nBlocks;
    }

    void Add(std::int32_t nMcu, std::int32_t i, std::int32_t nLast) {
        if (m_pFull)
            TransformFull();
        Queue& queue = *m_apQueues[i];
        BlockGroup& group = *queue.pFilling;
        const BlockTarget target = TargetOf(m_row.aBlocks[i], nMcu);
        FetchBelow(target, m_row.aBlocks[i].nDstBelow);
        group.aTargets[group.nBlocks] = target;
        group.nLast = std::max(group.nLast, nLast);
        if (++group.nBlocks == nGroup) {
            m_pFull = &group;
            m_pFullSteps = queue.pSteps;
            queue.pFilling = &group == queue.aGroups ? queue.aGroups + 1 : queue.aGroups;
        }
    }

    // The blocks that still wait; the lanes beside them go nowhere.
    void Finish() {
        if (m_pFull)
            TransformFull();
        std::uint8_t aNowhere[64];
        for (std::int32_t n = 0; n < m_nQueues; ++n) {
            BlockGroup& group = *m_aQueues[n].pFilling;
            if (group.nBlocks == 0)
                continue;
            std::fill(group.aTargets + group.nBlocks, group.aTargets + nGroup, BlockTarget{aNowhere, 8});
            InverseGroup(group, m_aQueues[n].pSteps);
        }
    }

private:
    struct Queue {
        BlockGroup aGroups[2];
        BlockGroup* pFilling;
        const std::uint16_t* pSteps;
    };

    void TransformFull() {
        InverseGroup(*m_pFull, m_pFullSteps);
        m_pFull = nullptr;
    }

    const IppMcuRow& m_row;
    BlockGroup* m_pFull = nullptr;
    const std::uint16_t* m_pFullSteps = nullptr;
    std::int32_t m_nQueues = 0;
    Queue* m_apQueues[ippMaxMcuBlocks];
    Queue m_aQueues[ippMaxMcuSteps];
};

// Blocks that leave their coefficients to the row, and are transformed one by one.
class KeptOutput {
public:
    static constexpr int nGroup = 1;

    explicit KeptOutput(const IppMcuRow& row) : m_row(row) {}

    std::int16_t* Block(std::int32_t nMcu, std::int32_t i) const {
        std::int16_t* const pBlock = At(nMcu, i);
        StoreZeroBlock(pBlock);
        return pBlock;
    }

    void Add(std::int32_t nMcu, std::int32_t i, std::int32_t nLast) const {
        const IppMcuBlock& block = m_row.aBlocks[i];
        InverseOne({At(nMcu, i), block.pSteps, TargetOf(block, nMcu)}, nLast);
    }

    void Finish() const {}

private:
    std::int16_t* At(std::int32_t nMcu, std::int32_t i) const {
        return m_row.pCoefficients + (std::ptrdiff_t{nMcu} * m_row.nBlocks + i) * 64;
    }

    const IppMcuRow& m_row;
};

// MCUs nFirst to nEnd, as far as the window and the fast way go; returns the one behind the last.
template <class Output>
std::int32_t DecodeRun(WindowReader& reader, const std::uint8_t* pEnd, IppMcuRow& row, std::int32_t nFirst,
                       std::int32_t nEnd) {
    Output output(row);
    WindowReader bits = reader;
    std::int32_t nMcu = nFirst;
    for (; nMcu < nEnd; ++nMcu) {
        WindowReader ahead = bits;
        std::int16_t anLastDc[4];
        std::memcpy(anLastDc, row.anLastDc, sizeof anLastDc);
        std::int32_t i = 0;
        for (; i < row.nBlocks; ++i) {
            const IppMcuBlock& block = row.aBlocks[i];
            const std::int32_t nLast = DecodeWindowBlock<Output::nGroup>(
                ahead, output.Block(nMcu, i), anLastDc[block.nComponent & 3], block);
            if (nLast == kNoBlock || ahead.Passed(pEnd))
                break;
            output.Add(nMcu, i, nLast);
        }
        if (i < row.nBlocks)
            break;
        bits = ahead;
        std::memcpy(row.anLastDc, anLastDc, sizeof anLastDc);
    }
    output.Finish();
    reader = bits;
    return nMcu;
}

// Whether the blocks of an MCU have no more quantisers than there are groups for.
inline bool HasFewSteps(const IppMcuRow& row) {
    const std::uint16_t* apSteps[ippMaxMcuSteps];
    const std::uint16_t** pEnd = apSteps;
    for (std::int32_t i = 0; i < row.nBlocks; ++i) {
        if (std::find(apSteps, pEnd, row.aBlocks[i].pSteps) != pEnd)
            continue;
        if (pEnd == std::end(apSteps))
            return false;
        *pEnd++ = row.aBlocks[i].pSteps;
    }
    return true;
}

} // namespace

IppStatus ippxDecodeMcus_1u8u(const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
                              const std::int32_t* pMarker, ippiDecodeHuffmanState* pState,
                              IppBitWindow* pWindow, IppMcuRow* pRow, std::int32_t nFirst, std::int32_t nMcus,
                              std::int32_t* pDone) {
    if (!pSrc || !pSrcCurrPos || !pMarker || !pState || !pWindow || !pWindow->pBytes || !pRow || !pDone)
        return ippStsNullPtrErr;
    if (nSrcSize < 0 || *pSrcCurrPos < 0 || nFirst < 0 || pRow->nBlocks < 1 ||
        pRow->nBlocks > ippMaxMcuBlocks || !HasFewSteps(*pRow))
        return ippStsBadArgument;
    *pDone = 0;
    // With a marker in hand nothing is taken in, and what is held is for the block kernel.
    if (*pMarker != 0 || *pSrcCurrPos > nSrcSize)
        return ippStsNoErr;

    const auto decode = pRow->bKeep ? DecodeRun<KeptOutput> : DecodeRun<GroupedOutput>;
    *pDone = DecodeFromWindow(*pWindow, pSrc, nSrcSize, *pSrcCurrPos, *pState, nMcus,
                              [=](WindowReader& bits, const std::uint8_t* pEnd, std::int32_t nBegin) {
                                  return decode(bits, pEnd, *pRow, nFirst + nBegin, nFirst + nMcus) - nFirst;
                              });
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
