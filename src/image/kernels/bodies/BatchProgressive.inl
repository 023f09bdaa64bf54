// Progressive scans over many blocks: the procedures of DecodeProgressive.inl with one bit reader for all
// blocks and, for AC scans, with masks in place of walks over the coefficients. And the way from the masks to
// the samples.
#pragma once

#include "image/kernels/bodies/BatchDecode.inl"
#include "image/kernels/bodies/DecodeProgressive.inl"

namespace KERNEL_TARGET {
namespace {

// The lowest nCount bits, 0 or more.
inline std::uint64_t LowBits(std::int32_t nCount) {
    return nCount > 63 ? ~std::uint64_t{0} : ~(~std::uint64_t{0} << nCount);
}

// The next symbol, or -1 where no code fits. Takes 16 bits at most.
inline std::int32_t NextSymbol(WindowReader& bits, const ippiDecodeHuffmanSpec& huffman) {
    if (const std::uint32_t nEntry = huffman.aFast[bits.Peek(8)]) {
        bits.Drop(nEntry >> 16);
        return static_cast<std::int32_t>(nEntry & 0xFFFF);
    }
    return bits.Symbol(huffman, 9);
}

// The number of blocks that an end-of-band symbol of this run speaks for. Takes 14 bits at most.
inline std::int32_t WindowEobRun(WindowReader& bits, std::uint32_t nRun) {
    std::int32_t nBlocks = 1 << nRun;
    if (nRun > 0) {
        nBlocks += static_cast<std::int32_t>(bits.Peek(nRun));
        bits.Drop(nRun);
    }
    return nBlocks;
}

// What an AC scan of one block goes by and leaves.
struct AcBlock {
    std::int16_t* pDst;
    std::uint64_t nMask;
    std::int32_t nEobRun;
};

// False where the fast way ends. Coefficients written until then are written again by the other: none of them
// comes from what the reader makes up behind the end.
inline bool WindowAcFirst(WindowReader& bits, const std::uint8_t* pEnd, AcBlock& block,
                          const IppProgressiveRow& row) {
    const ippiDecodeHuffmanSpec& table = *row.pTable;
    for (std::int32_t k = row.nSs; k <= row.nSe; ++k) {
        bits.Refill();
        std::int32_t nValue = 0;
        if (const std::uint32_t nEntry = table.aRun[bits.Peek(ippDecodeRunBits)]; nEntry >> 16 != 0) {
            bits.Drop(nEntry & 0xFF);
            k += static_cast<std::int32_t>(nEntry >> 8 & 0xFF) - 1;
            nValue = static_cast<std::int16_t>(nEntry >> 16);
        } else {
            const std::int32_t nSymbol = NextSymbol(bits, table);
            if (nSymbol < 0)
                return false;
            const auto nRun = static_cast<std::uint32_t>(nSymbol >> 4 & 15);
            const auto nSize = static_cast<std::uint32_t>(nSymbol & 15);
            if (nSize == 0 && nRun < 15) {
                block.nEobRun = WindowEobRun(bits, nRun) - 1;
                return true;
            }
            k += static_cast<std::int32_t>(nRun);
            if (nSize == 0)
                continue;
            nValue = bits.Value(nSize);
        }
        if (k > 63 || bits.Passed(pEnd))
            return false;
        const std::int16_t nStored = ShiftLeft(nValue, row.nAl);
        block.pDst[g_aZigZag[k]] = nStored;
        block.nMask = (block.nMask & ~(std::uint64_t{1} << k)) | std::uint64_t{nStored != 0} << k;
    }
    return true;
}

// What a refinement has changed in a block, so that it can be taken back.
class Changes {
public:
    void Note(std::uint32_t nPlace, std::int16_t nBefore) {
        m_anPlaces[m_nCount] = static_cast<std::uint8_t>(nPlace);
        m_anBefore[m_nCount++] = nBefore;
    }
    void TakeBack(std::int16_t* pDst) const {
        for (std::uint32_t i = 0; i < m_nCount; ++i)
            pDst[m_anPlaces[i]] = m_anBefore[i];
    }

private:
    std::uint32_t m_nCount = 0; // each coefficient changes once at most
    std::uint8_t m_anPlaces[64];
    std::int16_t m_anBefore[64];
};

// One correction bit for each coefficient of nMask: away from zero by a step, unless the step is there. 32
// bits are available at the start.
inline void WindowCorrect(WindowReader& bits, std::int16_t* pDst, std::uint64_t nMask, std::int32_t nAl,
                          Changes& changes) {
    for (;;) {
        std::uint32_t nBits = bits.Peek(32);
        std::uint32_t nTaken = 0;
        for (; nMask != 0 && nTaken < 32; ++nTaken, nBits <<= 1, nMask &= nMask - 1) {
            const std::uint32_t nPlace = g_aZigZag[__builtin_ctzll(nMask)];
            const std::int32_t nBefore = pDst[nPlace];
            const std::int32_t nSign = nBefore >> 15;
            const std::int32_t nStep = static_cast<std::int32_t>(nBits >> 31 << nAl) & ~nBefore;
            changes.Note(nPlace, static_cast<std::int16_t>(nBefore));
            pDst[nPlace] = static_cast<std::int16_t>(nBefore + ((nStep ^ nSign) - nSign));
        }
        bits.Drop(nTaken);
        if (nMask == 0)
            return;
        bits.Refill();
    }
}

// The place of the zero from k on that nRun others precede, or the one behind the band.
inline std::int32_t ZeroBehind(std::uint64_t nMask, std::int32_t k, std::int32_t nRun, std::int32_t nSe) {
    const std::uint64_t nFromHere = nMask >> k;
    std::int32_t nSpan = nRun;
    for (;;) {
        const std::int32_t nMore = nRun + __builtin_popcountll(nFromHere & LowBits(nSpan + 1));
        if (nMore == nSpan)
            return std::min(k + nSpan, nSe + 1);
        nSpan = nMore;
    }
}

inline bool WindowAcRefine(WindowReader& bits, AcBlock& block, const IppProgressiveRow& row,
                           Changes& changes) {
    const ippiDecodeHuffmanSpec& table = *row.pTable;
    const std::uint64_t nBand = LowBits(row.nSe + 1);
    std::int32_t k = row.nSs;
    if (block.nEobRun == 0) {
        while (k <= row.nSe) {
            bits.Refill();
            const std::int32_t nSymbol = NextSymbol(bits, table);
            const std::int32_t nRun = nSymbol >> 4 & 15;
            const std::int32_t nSize = nSymbol & 15;
            if (nSize == 0 && nRun < 15) {
                block.nEobRun = WindowEobRun(bits, static_cast<std::uint32_t>(nRun));
                break;
            }
            if (nSymbol < 0 || nSize > 1)
                return false;
            const std::uint32_t nPositive = bits.Peek(1);
            bits.Drop(static_cast<std::uint32_t>(nSize));
            const std::int32_t nPlace = ZeroBehind(block.nMask & nBand, k, nRun, row.nSe);
            WindowCorrect(bits, block.pDst, block.nMask >> k << k & LowBits(nPlace), row.nAl, changes);
            if (nSize == 1) {
                if (nPlace > 63)
                    return false;
                const std::uint32_t nNatural = g_aZigZag[nPlace];
                changes.Note(nNatural, block.pDst[nNatural]);
                block.pDst[nNatural] = ShiftLeft(nPositive != 0 ? 1 : -1, row.nAl);
                block.nMask |= std::uint64_t{1} << nPlace;
            }
            k = nPlace + 1;
        }
    }
    if (block.nEobRun > 0) {
        if (k <= row.nSe) {
            bits.Refill();
            WindowCorrect(bits, block.pDst, block.nMask >> k << k & nBand, row.nAl, changes);
        }
        --block.nEobRun;
    }
    return true;
}

// The blocks of a row, one after the other.
class RowCursor {
public:
    RowCursor(const IppProgressiveRow& row, std::int32_t nFirst)
        : m_row(row), m_nInMcu(nFirst % row.nTogether),
          m_nBlock(std::ptrdiff_t{nFirst / row.nTogether} * row.nMcuBlocks + m_nInMcu) {}

    std::uint64_t& Mask() const { return m_row.pMasks[m_nBlock]; }
    std::int16_t* Block() const { return m_row.pBlocks + 64 * m_nBlock; }
    void Next() {
        ++m_nBlock;
        if (++m_nInMcu == m_row.nTogether) {
            m_nInMcu = 0;
            m_nBlock += m_row.nMcuBlocks - m_row.nTogether;
        }
    }

private:
    const IppProgressiveRow& m_row;
    std::int32_t m_nInMcu;
    std::ptrdiff_t m_nBlock;
};

// Passes over the blocks from nBlock on that an end-of-band run leaves as they are: without a bit, and
// without a look at their coefficients.
inline std::int32_t PassOver(const IppProgressiveRow& row, RowCursor& cursor, std::int32_t nBlock,
                             std::int32_t nEnd, std::int32_t& nEobRun) {
    const std::uint64_t nBand = LowBits(row.nSe + 1) >> row.nSs << row.nSs;
    const std::uint64_t nStops = row.bRefine ? nBand : 0;
    for (; nEobRun > 0 && nBlock < nEnd && (cursor.Mask() & nStops) == 0; ++nBlock, --nEobRun)
        cursor.Next();
    return nBlock;
}

// Blocks nBlock to nEnd, as far as the window and the fast way go; returns the one behind the last.
template <bool bRefine>
std::int32_t DecodeBlocks(WindowReader& reader, const std::uint8_t* pEnd, const IppProgressiveRow& row,
                          std::int32_t nBlock, std::int32_t nEnd, std::int32_t& nEobRun) {
    RowCursor cursor(row, nBlock);
    WindowReader bits = reader;
    AcBlock block{nullptr, 0, nEobRun};
    for (;; ++nBlock, cursor.Next()) {
        nEobRun = block.nEobRun;
        reader = bits;
        if (nEobRun > 0) {
            nBlock = PassOver(row, cursor, nBlock, nEnd, nEobRun);
            block.nEobRun = nEobRun;
        }
        if (nBlock == nEnd)
            return nBlock;
        block.pDst = cursor.Block();
        block.nMask = cursor.Mask();
        if constexpr (bRefine) {
            Changes changes;
            if (!WindowAcRefine(bits, block, row, changes) || bits.Passed(pEnd)) {
                changes.TakeBack(block.pDst);
                return nBlock;
            }
        } else {
            if (!WindowAcFirst(bits, pEnd, block, row) || bits.Passed(pEnd))
                return nBlock;
        }
        cursor.Mask() = block.nMask;
    }
}

inline bool WindowDcFirst(WindowReader& bits, const std::uint8_t* pEnd, std::int16_t* pMcu,
                          const IppProgressiveMcus& mcus, std::int16_t (&anLastDc)[4]) {
    for (std::int32_t i = 0; i < mcus.nBlocks; ++i, pMcu += 64) {
        if (mcus.bClear)
            StoreZeroBlock(pMcu);
        if (!mcus.apTables[i])
            continue;
        bits.Refill();
        std::int16_t& nLastDc = anLastDc[mcus.anComponents[i]];
        const std::int32_t nSymbol = NextSymbol(bits, *mcus.apTables[i]);
        if (nSymbol < 0)
            return false;
        if (const auto nSize = static_cast<std::uint32_t>(nSymbol & 15))
            nLastDc = AddDc(nLastDc, bits.Value(nSize));
        if (bits.Passed(pEnd))
            return false;
        pMcu[0] = ShiftLeft(nLastDc, mcus.nAl);
    }
    return true;
}

inline void WindowDcRefine(WindowReader& bits, std::int16_t* pMcu, const IppProgressiveMcus& mcus) {
    bits.Refill();
    std::uint32_t nBits = bits.Peek(32);
    bits.Drop(static_cast<std::uint32_t>(mcus.nNamed));
    for (std::int32_t i = 0; i < mcus.nBlocks; ++i, pMcu += 64) {
        if (!mcus.abNamed[i])
            continue;
        pMcu[0] = static_cast<std::int16_t>(pMcu[0] | static_cast<std::int32_t>(nBits >> 31 << mcus.nAl));
        nBits <<= 1;
    }
}

// MCUs nMcu to nEnd, as far as the window and the fast way go; returns the one behind the last. A refinement
// sets bits, so that to do it twice does no harm.
std::int32_t DecodeDcMcus(WindowReader& reader, const std::uint8_t* pEnd, IppProgressiveMcus& mcus,
                          std::int32_t nMcu, std::int32_t nEnd) {
    std::int16_t* pMcu = mcus.pBlocks + std::ptrdiff_t{64} * mcus.nBlocks * nMcu;
    WindowReader bits = reader;
    std::int16_t anLastDc[4];
    std::copy_n(mcus.anLastDc, 4, anLastDc);
    for (; nMcu < nEnd; ++nMcu, pMcu += 64 * mcus.nBlocks) {
        if (!mcus.bRefine) {
            if (!WindowDcFirst(bits, pEnd, pMcu, mcus, anLastDc))
                break;
            std::copy_n(anLastDc, 4, mcus.anLastDc);
        } else {
            WindowReader ahead = bits;
            ahead.Refill();
            ahead.Drop(static_cast<std::uint32_t>(mcus.nNamed));
            if (ahead.Passed(pEnd))
                break;
            WindowDcRefine(bits, pMcu, mcus);
        }
        reader = bits;
    }
    return nMcu;
}

// The inverse transforms of nBlocks blocks, two at a time: of one MCU, or with bOdd of up to two.
template <bool bOdd>
void ReconstructMcus(const IppMcuRow& row, std::int32_t nFirst, std::int32_t nBlocks,
                     const std::int32_t* pLast) {
    const std::int16_t* const pBlocks = row.pCoefficients + std::ptrdiff_t{nFirst} * row.nBlocks * 64;
    const auto task = [&row, pBlocks, nFirst](std::int32_t i) {
        const std::int32_t nSecond = bOdd && i >= row.nBlocks ? 1 : 0;
        const IppMcuBlock& block = row.aBlocks[i - nSecond * row.nBlocks];
        return BlockTask{pBlocks + 64 * i, block.pSteps, TargetOf(block, nFirst + nSecond)};
    };
    std::int32_t i = 0;
    for (; i + 1 < nBlocks; i += 2)
        InverseTwo(task(i), pLast[i], task(i + 1), pLast[i + 1]);
    if (bOdd && i < nBlocks)
        InverseOne(task(i), pLast[i]);
}

} // namespace

IppStatus ippxDecodeProgressiveMcus_1u16s(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                          std::int32_t* pSrcCurrPos, const std::int32_t* pMarker,
                                          ippiDecodeHuffmanState* pState, IppBitWindow* pWindow,
                                          IppProgressiveMcus* pMcus, std::int32_t nMcus,
                                          std::int32_t* pDone) {
    if (!pWindow || !pWindow->pBytes || !pMcus || !pDone)
        return ippStsNullPtrErr;
    if (const IppStatus nStatus = CheckProgressive(pSrc, nSrcSize, pSrcCurrPos, pMcus->pBlocks, pMarker,
                                                   pState, {kAnySs, kAnySe, pMcus->nAl}))
        return nStatus;
    if (nMcus < 0 || pMcus->nBlocks < 1 || pMcus->nBlocks > ippMaxMcuBlocks)
        return ippStsBadArgument;
    *pDone = 0;
    // With a marker in hand nothing is taken in, and what is held is for the block kernel.
    if (*pMarker != 0 || *pSrcCurrPos > nSrcSize)
        return ippStsNoErr;
    *pDone = DecodeFromWindow(*pWindow, pSrc, nSrcSize, *pSrcCurrPos, *pState, nMcus,
                              [=](WindowReader& bits, const std::uint8_t* pEnd, std::int32_t nBegin) {
                                  return DecodeDcMcus(bits, pEnd, *pMcus, nBegin, nMcus);
                              });
    return ippStsNoErr;
}

IppStatus ippxDecodeProgressiveRow_1u16s(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                         std::int32_t* pSrcCurrPos, const std::int32_t* pMarker,
                                         ippiDecodeHuffmanState* pState, IppBitWindow* pWindow,
                                         const IppProgressiveRow* pRow, std::int32_t nFirst,
                                         std::int32_t nBlocks, std::int32_t* pDone) {
    if (!pWindow || !pWindow->pBytes || !pRow || !pDone || !pRow->pTable || !pRow->pMasks)
        return ippStsNullPtrErr;
    if (const IppStatus nStatus = CheckProgressive(pSrc, nSrcSize, pSrcCurrPos, pRow->pBlocks, pMarker,
                                                   pState, {pRow->nSs, pRow->nSe, pRow->nAl}))
        return nStatus;
    if (nFirst < 0 || nBlocks < 0 || pRow->nTogether < 1 || pRow->nMcuBlocks < pRow->nTogether)
        return ippStsBadArgument;
    std::int32_t nEobRun = pState->nEobRun;
    RowCursor cursor(*pRow, nFirst);
    *pDone = PassOver(*pRow, cursor, nFirst, nFirst + nBlocks, nEobRun) - nFirst;
    if (*pDone < nBlocks && *pMarker == 0 && *pSrcCurrPos <= nSrcSize) {
        const auto decode = pRow->bRefine ? DecodeBlocks<true> : DecodeBlocks<false>;
        const std::int32_t nPassed = *pDone;
        *pDone += DecodeFromWindow(*pWindow, pSrc, nSrcSize, *pSrcCurrPos, *pState, nBlocks - nPassed,
                                   [&](WindowReader& bits, const std::uint8_t* pEnd, std::int32_t nBegin) {
                                       return decode(bits, pEnd, *pRow, nFirst + nPassed + nBegin,
                                                     nFirst + nBlocks, nEobRun) -
                                              nFirst - nPassed;
                                   });
    }
    pState->nEobRun = nEobRun;
    return ippStsNoErr;
}

IppStatus ippxInverseMcus_16s8u(const IppMcuRow* pRow, const std::uint64_t* pMasks, std::int32_t nFirst,
                                std::int32_t nMcus) {
    if (!pRow || !pMasks || !pRow->pCoefficients)
        return ippStsNullPtrErr;
    if (nFirst < 0 || pRow->nBlocks < 1 || pRow->nBlocks > ippMaxMcuBlocks)
        return ippStsBadArgument;
    const bool bOdd = pRow->nBlocks % 2 != 0;
    const auto reconstruct = bOdd ? ReconstructMcus<true> : ReconstructMcus<false>;
    const std::uint64_t* pMask = pMasks + std::ptrdiff_t{nFirst} * pRow->nBlocks;
    std::int32_t anLast[2 * ippMaxMcuBlocks];
    for (std::int32_t nDone = 0; nDone < nMcus;) {
        const std::int32_t nTogether = bOdd ? std::min(nMcus - nDone, 2) : 1;
        const std::int32_t nBlocks = nTogether * pRow->nBlocks;
        for (std::int32_t i = 0; i < nBlocks; ++i, ++pMask)
            anLast[i] = *pMask != 0 ? 63 - __builtin_clzll(*pMask) : 0;
        reconstruct(*pRow, nFirst + nDone, nBlocks, anLast);
        nDone += nTogether;
    }
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
