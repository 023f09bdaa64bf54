// Huffman decoding of one block (T.81 F.2.2.1 and F.2.2.2), twice: by the reader that defines the outcome and
// by the fast one, which either gives the same or nothing.
//
// SlowBitReader is the truth: byte by byte, with the state, the position and the marker that callers see
// after every call. FastBitReader holds 64 bits, takes in whole words where no byte of 0xFF is near, and
// gives up when the bits run out or the data looks unusual; what it did is then thrown away and done again by
// the slow one.
#pragma once

#include "image/kernels/Decode.h"

namespace KERNEL_TARGET {
namespace {

// The value of nSize further bits (T.81 F.2.2.1, RECEIVE and EXTEND in one): those with a first bit of 0
// stand for the negative values.
inline std::int32_t ReceiveExtend(std::uint32_t nRaw, std::uint32_t nSize) {
    // Without a branch, since signs cannot be foreseen.
    const std::int32_t nNegative = static_cast<std::int32_t>(nRaw >> (nSize - 1) & 1) - 1;
    return static_cast<std::int32_t>(nRaw) + (nNegative & (1 - (1 << nSize)));
}

class SlowBitReader {
public:
    SlowBitReader(const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t& nPos, std::int32_t& nMarker,
                  ippiDecodeHuffmanState& state)
        : m_pSrc(pSrc), m_nSrcSize(nSrcSize), m_nPos(nPos), m_nMarker(nMarker), m_state(state) {}

    // The next symbol of a table. Where the bits suffice but no code fits: ippStsMarkerOrNoCode and symbol 0.
    IppStatus Symbol(const ippiDecodeHuffmanSpec& huffman, std::uint32_t& nSymbol) {
        nSymbol = 0;
        std::int32_t nLength = 9;
        if (m_state.nBits < 8) {
            if (const IppStatus nStatus = Fill(0))
                return nStatus;
            if (m_state.nBits < 8)
                nLength = 1;
        }
        if (m_state.nBits >= 8) {
            if (const std::uint32_t nEntry = huffman.aFast[m_state.nAccumulator >> 24]) {
                Drop(static_cast<std::int32_t>(nEntry >> 16));
                nSymbol = nEntry & 0xFFFF;
                return ippStsNoErr;
            }
        }
        std::uint32_t nCode = 0;
        if (const IppStatus nStatus = Take(nLength, nCode))
            return nStatus;
        for (; static_cast<std::int32_t>(nCode) > huffman.aMaxCode[nLength]; ++nLength) {
            if (nLength == 16)
                return ippStsMarkerOrNoCode;
            std::uint32_t nBit = 0;
            if (const IppStatus nStatus = Take(1, nBit))
                return nStatus;
            nCode = nCode << 1 | nBit;
        }
        const std::int32_t nIndex =
            huffman.aValueIndex[nLength] + static_cast<std::int32_t>(nCode) - huffman.aMinCode[nLength];
        nSymbol = huffman.aValues[nIndex & 255];
        return ippStsNoErr;
    }

    // nCount bits, 1 to 16, as a number.
    IppStatus Take(std::int32_t nCount, std::uint32_t& nBits) {
        if (m_state.nBits < nCount) {
            if (const IppStatus nStatus = Fill(nCount))
                return nStatus;
        }
        nBits = m_state.nAccumulator >> (32 - nCount);
        Drop(nCount);
        return ippStsNoErr;
    }

private:
    void Drop(std::int32_t nCount) {
        m_state.nAccumulator <<= nCount;
        m_state.nBits -= nCount;
    }

    // Takes in bytes while 25 bits are not held; fails when fewer than nNeeded could be had, and also when
    // the data ends between a 0xFF and what must follow it.
    IppStatus Fill(std::int32_t nNeeded) {
        while (m_state.nBits < 25 && m_nMarker == 0) {
            if (m_nPos >= m_nSrcSize)
                return nNeeded > m_state.nBits ? ippStsBufferEnd : ippStsNoErr;
            const std::uint32_t nByte = m_pSrc[m_nPos++];
            if (nByte == 0xFF) {
                std::uint8_t nNext = 0xFF;
                while (nNext == 0xFF) {
                    if (m_nPos >= m_nSrcSize)
                        return ippStsBufferEnd;
                    nNext = m_pSrc[m_nPos++];
                }
                if (nNext != 0) {
                    m_nMarker = nNext;
                    break;
                }
            }
            m_state.nAccumulator |= nByte << (24 - m_state.nBits);
            m_state.nBits += 8;
        }
        return nNeeded > m_state.nBits ? ippStsMarkerOrNoCode : ippStsNoErr;
    }

    const std::uint8_t* m_pSrc;
    std::int32_t m_nSrcSize;
    std::int32_t& m_nPos;
    std::int32_t& m_nMarker;
    ippiDecodeHuffmanState& m_state;
};

class FastBitReader {
public:
    FastBitReader(const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t nPos, std::int32_t nMarker,
                  const ippiDecodeHuffmanState& state)
        : m_pSrc(pSrc), m_pBegin(pSrc + std::min(nPos, nSrcSize)), m_pNext(m_pBegin), m_pEnd(pSrc + nSrcSize),
          m_nHeld(std::uint64_t{state.nAccumulator} << 32), m_nBits(state.nBits), m_bStopped(nMarker != 0) {
        // Data that ends with a lone 0xFF fails at a place that hangs on how far ahead a reader looks. A
        // block with its look-ahead takes at most 64 * 31 bits and 8 bytes, twice as many with stuffing.
        constexpr std::ptrdiff_t kFarthest = 2 * (64 * 31 / 8 + 8);
        m_bGaveUp = m_pEnd != m_pBegin && m_pEnd[-1] == 0xFF && m_pEnd - m_pBegin <= kFarthest;
    }

    // Makes 32 bits available, the longest code with the longest value, unless the intake has stopped: at a
    // marker or at the end. The bits held may then become fewer than none, which GaveUp tells.
    void Refill() {
        if (m_nBits >= 32 || m_bStopped)
            return;
        if (m_pEnd - m_pNext >= 8) {
            std::uint64_t nWord;
            std::memcpy(&nWord, m_pNext, sizeof nWord);
            nWord = __builtin_bswap64(nWord);
            // No byte is 0xFF: no byte of the complement is 0.
            if (((~nWord - 0x0101010101010101u) & nWord & 0x8080808080808080u) == 0) {
                m_nHeld |= nWord >> m_nBits;
                m_pNext += (63 - m_nBits) >> 3;
                m_nBits |= 56;
                return;
            }
        }
        RefillBytes();
    }

    std::uint32_t Peek(std::uint32_t nCount) const {
        return static_cast<std::uint32_t>(m_nHeld >> (64 - nCount));
    }

    void Drop(std::uint32_t nCount) {
        m_nHeld <<= nCount;
        m_nBits -= static_cast<std::int32_t>(nCount);
    }

    // The next symbol, or 0 with the reader given up where no code fits.
    std::uint32_t Symbol(const ippiDecodeHuffmanSpec& huffman) {
        if (const std::uint32_t nEntry = huffman.aFast[Peek(8)]) {
            Drop(nEntry >> 16);
            return nEntry & 0xFFFF;
        }
        for (std::uint32_t nLength = 9; nLength <= 16; ++nLength) {
            const auto nCode = static_cast<std::int32_t>(Peek(nLength));
            if (nCode <= huffman.aMaxCode[nLength]) {
                Drop(nLength);
                return huffman
                    .aValues[(huffman.aValueIndex[nLength] + nCode - huffman.aMinCode[nLength]) & 255];
            }
        }
        m_bGaveUp = true;
        return 0;
    }

    // The value of nSize bits, 1 to 15.
    std::int32_t Value(std::uint32_t nSize) {
        const std::uint32_t nRaw = Peek(nSize);
        Drop(nSize);
        return ReceiveExtend(nRaw, nSize);
    }

    void GiveUp() { m_bGaveUp = true; }
    bool GaveUp() const { return m_bGaveUp || m_nBits < 0; }

    // Leaves what the slow reader can go on from: bytes beyond its 32 bits go back into the data. Those are
    // bytes that this reader has taken in, since it began with no more than 32 bits.
    void Commit(std::int32_t& nPos, ippiDecodeHuffmanState& state) {
        while (m_nBits > 32) {
            const bool bStuffed = m_pNext - m_pBegin >= 2 && m_pNext[-1] == 0 && m_pNext[-2] == 0xFF;
            m_pNext -= bStuffed ? 2 : 1;
            m_nBits -= 8;
        }
        const auto nHeld = static_cast<std::uint32_t>(m_nHeld >> 32);
        state.nAccumulator = m_nBits == 0 ? 0 : nHeld & ~std::uint32_t{0} << (32 - m_nBits);
        state.nBits = m_nBits;
        if (m_pNext != m_pBegin)
            nPos = static_cast<std::int32_t>(m_pNext - m_pSrc);
    }

private:
    // Near a 0xFF or the end. Only the stuffed pair 0xFF 0x00 is taken in here; all else that begins with
    // 0xFF is left to the slow reader, and where even its bits count on what follows, so is the block.
    void RefillBytes() {
        while (m_nBits <= 56) {
            if (m_pNext == m_pEnd) {
                m_bStopped = true;
                return;
            }
            const std::uint64_t nByte = *m_pNext;
            if (nByte == 0xFF) {
                const bool bAlone = m_pEnd - m_pNext < 2;
                if (bAlone || m_pNext[1] != 0) {
                    m_bStopped = true;
                    m_bGaveUp = m_bGaveUp || bAlone || m_pNext[1] == 0xFF;
                    return;
                }
                ++m_pNext;
            }
            ++m_pNext;
            m_nHeld |= nByte << (56 - m_nBits);
            m_nBits += 8;
        }
    }

    const std::uint8_t* m_pSrc;
    const std::uint8_t* m_pBegin;
    const std::uint8_t* m_pNext;
    const std::uint8_t* m_pEnd;
    std::uint64_t
        m_nHeld; // the next bit topmost; below m_nBits bits may stand the first ones of the next byte
    std::int32_t m_nBits;
    bool m_bStopped;
    bool m_bGaveUp = false;
};

// The predictor is a 16-bit number; sums beyond it wrap.
inline std::int16_t AddDc(std::int16_t nLastDc, std::int32_t nDifference) {
    return static_cast<std::int16_t>(nLastDc + nDifference);
}

IppStatus DecodeBlockSlow(SlowBitReader& bits, std::int16_t* pDst, std::int16_t& nLastDc,
                          const ippiDecodeHuffmanSpec& dcTable, const ippiDecodeHuffmanSpec& acTable,
                          std::int32_t& nDone) {
    std::uint32_t nSymbol = 0;
    std::uint32_t nRaw = 0;
    if (const IppStatus nStatus = bits.Symbol(dcTable, nSymbol))
        return nStatus;
    if (const std::uint32_t nSize = nSymbol & 15) {
        if (const IppStatus nStatus = bits.Take(static_cast<std::int32_t>(nSize), nRaw))
            return nStatus;
        nLastDc = AddDc(nLastDc, ReceiveExtend(nRaw, nSize));
    }
    pDst[0] = nLastDc;
    for (nDone = 1; nDone < 64; ++nDone) {
        if (const IppStatus nStatus = bits.Symbol(acTable, nSymbol))
            return nStatus;
        const auto nRun = static_cast<std::int32_t>(nSymbol >> 4 & 15);
        const std::uint32_t nSize = nSymbol & 15;
        if (nSize == 0) {
            if (nRun != 15)
                break;
            nDone += 15;
            continue;
        }
        nDone += nRun;
        if (const IppStatus nStatus = bits.Take(static_cast<std::int32_t>(nSize), nRaw))
            return nStatus;
        const std::uint8_t nPlace = g_aZigZag[nDone];
        if (nPlace > 63)
            return ippStsBadRun;
        pDst[nPlace] = static_cast<std::int16_t>(ReceiveExtend(nRaw, nSize));
    }
    return ippStsNoErr;
}

// False when the reader gave up; then only pDst has been touched.
bool DecodeBlockFast(FastBitReader& bits, std::int16_t* pDst, std::int16_t& nLastDc,
                     const ippiDecodeHuffmanSpec& dcTable, const ippiDecodeHuffmanSpec& acTable) {
    if (bits.GaveUp())
        return false;
    bits.Refill();
    std::int16_t nDc = nLastDc;
    if (const std::uint32_t nSize = bits.Symbol(dcTable) & 15)
        nDc = AddDc(nDc, bits.Value(nSize));
    pDst[0] = nDc;
    std::uint32_t nDone = 1;
    while (nDone < 64) {
        bits.Refill();
        if (const std::uint32_t nEntry = acTable.aRun[bits.Peek(ippDecodeRunBits)]) {
            bits.Drop(nEntry & 0xFF);
            nDone += nEntry >> 8 & 0xFF;
            const auto nValue = static_cast<std::int16_t>(nEntry >> 16);
            if (nValue == 0)
                continue; // an end of block has moved nDone past the end
            const std::uint8_t nPlace = g_aZigZag[nDone - 1];
            if (nPlace > 63)
                return false;
            pDst[nPlace] = nValue;
            continue;
        }
        const std::uint32_t nSymbol = bits.Symbol(acTable);
        const std::uint32_t nSize = nSymbol & 15;
        if (nSize == 0) {
            if (nSymbol >> 4 != 15)
                break;
            nDone += 16;
            continue;
        }
        nDone += nSymbol >> 4 & 15;
        const std::uint8_t nPlace = g_aZigZag[nDone];
        if (nPlace > 63)
            return false;
        pDst[nPlace] = static_cast<std::int16_t>(bits.Value(nSize));
        ++nDone;
    }
    if (bits.GaveUp())
        return false;
    nLastDc = nDc;
    return true;
}

} // namespace

IppStatus ippiDecodeHuffman8x8_JPEG_1u16s_C1(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                             std::int32_t* pSrcCurrPos, std::int16_t* pDst,
                                             std::int16_t* pLastDC, std::int32_t* pMarker,
                                             const ippiDecodeHuffmanSpec* pDcTable,
                                             const ippiDecodeHuffmanSpec* pAcTable,
                                             ippiDecodeHuffmanState* pState) {
    if (!pSrc || !pSrcCurrPos || !pDst || !pLastDC || !pMarker || !pDcTable || !pAcTable || !pState)
        return ippStsNullPtrErr;
    if (nSrcSize < 0 || *pSrcCurrPos < 0)
        return ippStsBadArgument;
    std::memset(pDst, 0, 64 * sizeof *pDst);

    FastBitReader fast(pSrc, nSrcSize, *pSrcCurrPos, *pMarker, *pState);
    if (DecodeBlockFast(fast, pDst, *pLastDC, *pDcTable, *pAcTable)) {
        fast.Commit(*pSrcCurrPos, *pState);
        pState->nCoefficients = 64;
        return ippStsNoErr;
    }

    std::memset(pDst, 0, 64 * sizeof *pDst);
    pState->nCoefficients = 0;
    SlowBitReader slow(pSrc, nSrcSize, *pSrcCurrPos, *pMarker, *pState);
    const IppStatus nStatus =
        DecodeBlockSlow(slow, pDst, *pLastDC, *pDcTable, *pAcTable, pState->nCoefficients);
    if (nStatus == ippStsNoErr)
        pState->nCoefficients = 64;
    return nStatus;
}

} // namespace KERNEL_TARGET
