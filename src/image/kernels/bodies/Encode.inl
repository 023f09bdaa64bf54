// Huffman encoding of one block, sequential and progressive. Each walk is one template over where its symbols
// go, so that the dry run cannot differ from the writing.
#pragma once

#include "image/kernels/Encode.h"

namespace KERNEL_TARGET {
// Where coded symbols go: into bytes, or into counters.
//
// Both have the same two operations, so that the walk over a block is written once: Symbol(n) for a Huffman
// code and Bits(n, count) for plain bits. The first error sticks and stops all that would follow.
namespace {

class BitWriter {
public:
    BitWriter(std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t& nPos, ippiEncodeHuffmanState& state)
        : m_pDst(pDst), m_nDstSize(nDstSize), m_nPos(nPos), m_state(state) {}

    void UseTable(const ippiEncodeHuffmanSpec* pTable) { m_pTable = pTable; }

    // Symbols beyond a byte do not exist: they come of a value that needs more than 15 bits.
    void Symbol(std::uint32_t nSymbol) {
        const std::uint32_t nEntry = nSymbol < 256 ? m_pTable->aCode[nSymbol] : 0;
        if (nEntry == 0)
            Fail(ippStsHuffmanTableErr);
        else
            Bits(nEntry & 0xFFFF, static_cast<std::int32_t>(nEntry >> 16));
    }

    // The nCount low bits, 0 to 16 of them.
    void Bits(std::uint32_t nBits, std::int32_t nCount) {
        if (m_nStatus != ippStsNoErr)
            return;
        nBits &= (1u << nCount) - 1;
        m_state.nAccumulator |= nBits << (24 - m_state.nBits - nCount);
        m_state.nBits += nCount;
        for (; m_state.nBits >= 8; m_state.nBits -= 8) {
            const auto nByte = static_cast<std::uint8_t>(m_state.nAccumulator >> 16);
            if (!Byte(nByte) || (nByte == 0xFF && !Byte(0)))
                return;
            m_state.nAccumulator = m_state.nAccumulator << 8 & 0xFFFFFF;
        }
    }

    // Fills the last byte with ones; nothing where no bit is held.
    void Pad() {
        Bits(0x7F, 7);
        m_state.nAccumulator = 0;
        m_state.nBits = 0;
    }

    IppStatus Status() const { return m_nStatus; }

private:
    void Fail(IppStatus nStatus) {
        if (m_nStatus == ippStsNoErr)
            m_nStatus = nStatus;
    }

    bool Byte(std::uint8_t nByte) {
        if (m_nPos >= m_nDstSize) {
            Fail(ippStsBufferEnd);
            return false;
        }
        m_pDst[m_nPos++] = nByte;
        return true;
    }

    std::uint8_t* m_pDst;
    std::int32_t m_nDstSize;
    std::int32_t& m_nPos;
    ippiEncodeHuffmanState& m_state;
    const ippiEncodeHuffmanSpec* m_pTable = nullptr;
    IppStatus m_nStatus = ippStsNoErr;
};

class SymbolCounter {
public:
    explicit SymbolCounter(std::uint32_t* pStatistics) : m_pStatistics(pStatistics) {}

    void Symbol(std::uint32_t nSymbol) {
        if (nSymbol < 256)
            ++m_pStatistics[nSymbol];
        else
            m_nStatus = ippStsHuffmanTableErr;
    }

    void Bits(std::uint32_t /*nBits*/, std::int32_t /*nCount*/) {}
    IppStatus Status() const { return m_nStatus; }

private:
    std::uint32_t* m_pStatistics;
    IppStatus m_nStatus = ippStsNoErr;
};

constexpr std::uint32_t kZeroRun = 0xF0; // sixteen zeros
constexpr std::uint32_t kEndOfBlock = 0x00;
constexpr std::int32_t kLongestEobRun = 0x7FFF;
constexpr std::int32_t kMostCorrections = sizeof ippiEncodeHuffmanState::aCorrections;

// How many bits the magnitude takes: the category of T.81 Table F.1.
inline std::uint32_t SizeOf(std::int32_t nValue) {
    return static_cast<std::uint32_t>(
        std::bit_width(static_cast<std::uint32_t>(nValue < 0 ? -nValue : nValue)));
}

// The bits of a value behind its size: negative ones less one, of which the low bits count.
inline std::uint32_t ValueBits(std::int32_t nValue) {
    return static_cast<std::uint32_t>(nValue < 0 ? nValue - 1 : nValue);
}

template <class Sink>
void CodeDc(Sink& sink, std::int32_t nDifference) {
    const std::uint32_t nSize = SizeOf(nDifference);
    sink.Symbol(nSize);
    sink.Bits(ValueBits(nDifference), static_cast<std::int32_t>(nSize));
}

// A size of 16, that of the one value -32768, has no symbol: it would run into the run's bits.
template <class Sink>
void CodeAc(Sink& sink, std::uint32_t nRun, std::int32_t nValue) {
    const std::uint32_t nSize = SizeOf(nValue);
    sink.Symbol(nSize > 15 ? 256 : nRun << 4 | nSize);
    sink.Bits(ValueBits(nValue), static_cast<std::int32_t>(nSize));
}

template <class Sink>
void CodeBlock(Sink& sink, const std::int16_t* pSrc) {
    std::uint32_t nRun = 0;
    for (int k = 1; k < 64; ++k) {
        const std::int32_t nValue = pSrc[g_aZigZag[k]];
        if (nValue == 0) {
            ++nRun;
            continue;
        }
        for (; nRun > 15; nRun -= 16)
            sink.Symbol(kZeroRun);
        CodeAc(sink, nRun, nValue);
        nRun = 0;
    }
    if (nRun > 0)
        sink.Symbol(kEndOfBlock);
}

// The DC value of a first pass is shifted arithmetically (T.81 G.1.2.1).
template <class Sink>
void CodeDcFirst(Sink& sink, std::int32_t nValue, std::int32_t nAl, std::int16_t& nLastDc) {
    nValue >>= nAl;
    CodeDc(sink, nValue - nLastDc);
    nLastDc = static_cast<std::int16_t>(nValue);
}

template <class Sink>
void CodeCorrections(Sink& sink, const std::uint8_t* pBits, std::int32_t nCount) {
    for (std::int32_t i = 0; i < nCount; ++i)
        sink.Bits(pBits[i], 1);
}

// The pending end-of-band run and the correction bits of its blocks (T.81 Figures G.4 and G.8).
template <class Sink>
void CodeEobRun(Sink& sink, ippiEncodeHuffmanState& state) {
    if (state.nEobRun == 0)
        return;
    const std::uint32_t nSize = SizeOf(state.nEobRun) - 1;
    sink.Symbol(nSize << 4);
    sink.Bits(static_cast<std::uint32_t>(state.nEobRun), static_cast<std::int32_t>(nSize));
    state.nEobRun = 0;
    CodeCorrections(sink, state.aCorrections, state.nCorrections);
    state.nCorrections = 0;
}

struct EncodedBand {
    std::int32_t nSs;
    std::int32_t nSe;
    std::int32_t nAl;

    bool IsGood() const { return nSs >= 1 && nSs <= 63 && nSe >= nSs && nSe <= 63 && nAl >= 0 && nAl <= 13; }
};

// Magnitude without its low bits: AC values shift towards zero.
inline std::int32_t ShiftedMagnitude(std::int32_t nValue, std::int32_t nAl) {
    return (nValue < 0 ? -nValue : nValue) >> nAl;
}

template <class Sink>
void CodeAcFirst(Sink& sink, const std::int16_t* pSrc, const EncodedBand& band,
                 ippiEncodeHuffmanState& state) {
    std::uint32_t nRun = 0;
    for (std::int32_t k = band.nSs; k <= band.nSe; ++k) {
        const std::int32_t nValue = pSrc[g_aZigZag[k]];
        const std::int32_t nMagnitude = ShiftedMagnitude(nValue, band.nAl);
        if (nMagnitude == 0) {
            ++nRun;
            continue;
        }
        CodeEobRun(sink, state);
        for (; nRun > 15; nRun -= 16)
            sink.Symbol(kZeroRun);
        CodeAc(sink, nRun, nValue < 0 ? -nMagnitude : nMagnitude);
        nRun = 0;
    }
    if (nRun > 0 && ++state.nEobRun == kLongestEobRun)
        CodeEobRun(sink, state);
}

// T.81 G.1.2.3. Correction bits of values that were coded by earlier scans wait until the next symbol is out;
// those behind the last new value of a block wait until its end-of-band run is out, in the state.
template <class Sink>
void CodeAcRefine(Sink& sink, const std::int16_t* pSrc, const EncodedBand& band,
                  ippiEncodeHuffmanState& state) {
    std::int32_t aMagnitude[64];
    std::int32_t nLastNew = 0;
    for (std::int32_t k = band.nSs; k <= band.nSe; ++k) {
        aMagnitude[k] = ShiftedMagnitude(pSrc[g_aZigZag[k]], band.nAl);
        if (aMagnitude[k] == 1)
            nLastNew = k;
    }
    std::uint32_t nRun = 0;
    std::int32_t nPending = 0; // of this block, behind those in the state
    std::uint8_t* pPending = state.aCorrections + state.nCorrections;
    const auto code = [&](std::uint32_t nSymbol, std::uint32_t nSign, std::int32_t nSignBits) {
        CodeEobRun(sink, state);
        sink.Symbol(nSymbol);
        sink.Bits(nSign, nSignBits);
        CodeCorrections(sink, pPending, nPending);
        pPending = state.aCorrections;
        nPending = 0;
    };
    for (std::int32_t k = band.nSs; k <= band.nSe; ++k) {
        if (aMagnitude[k] == 0) {
            ++nRun;
            continue;
        }
        for (; nRun > 15 && k <= nLastNew; nRun -= 16)
            code(kZeroRun, 0, 0);
        if (aMagnitude[k] > 1) {
            pPending[nPending++] = static_cast<std::uint8_t>(aMagnitude[k] & 1);
            continue;
        }
        code(nRun << 4 | 1, pSrc[g_aZigZag[k]] < 0 ? 0 : 1, 1);
        nRun = 0;
    }
    if (nRun == 0 && nPending == 0)
        return;
    ++state.nEobRun;
    state.nCorrections += nPending;
    // The next block may bring 63 more.
    if (state.nEobRun == kLongestEobRun || state.nCorrections > kMostCorrections - 63)
        CodeEobRun(sink, state);
}

// What all writers check of their destination.
IppStatus CheckWriter(const std::uint8_t* pDst, std::int32_t nDstSize, const std::int32_t* pDstCurrPos,
                      const ippiEncodeHuffmanState* pState) {
    if (!pDst || !pDstCurrPos || !pState)
        return ippStsNullPtrErr;
    if (nDstSize < 0)
        return ippStsSizeErr;
    return *pDstCurrPos < 0 ? ippStsBadArgument : ippStsNoErr;
}

bool IsEncodableAl(std::int32_t nAl) {
    return nAl >= 0 && nAl <= 13;
}

using AcWalk = void (*)(BitWriter&, const std::int16_t*, const EncodedBand&, ippiEncodeHuffmanState&);
using AcCount = void (*)(SymbolCounter&, const std::int16_t*, const EncodedBand&, ippiEncodeHuffmanState&);

IppStatus WriteAc(AcWalk walk, const std::int16_t* pSrc, std::uint8_t* pDst, std::int32_t nDstSize,
                  std::int32_t* pDstCurrPos, const EncodedBand& band, const ippiEncodeHuffmanSpec* pAcTable,
                  ippiEncodeHuffmanState* pState, std::int32_t bFlush) {
    if (const IppStatus nStatus = CheckWriter(pDst, nDstSize, pDstCurrPos, pState))
        return nStatus;
    if (!pAcTable || (!pSrc && !bFlush))
        return ippStsNullPtrErr;
    if (!band.IsGood())
        return ippStsBadArgument;
    BitWriter writer(pDst, nDstSize, *pDstCurrPos, *pState);
    writer.UseTable(pAcTable);
    if (bFlush) {
        CodeEobRun(writer, *pState);
        writer.Pad();
    } else {
        walk(writer, pSrc, band, *pState);
    }
    return writer.Status();
}

IppStatus CountAc(AcCount walk, const std::int16_t* pSrc, std::uint32_t* pStatistics, const EncodedBand& band,
                  ippiEncodeHuffmanState* pState, std::int32_t bFlush) {
    if (!pStatistics || !pState || (!pSrc && !bFlush))
        return ippStsNullPtrErr;
    if (!band.IsGood())
        return ippStsBadArgument;
    SymbolCounter counter(pStatistics);
    if (bFlush)
        CodeEobRun(counter, *pState);
    else
        walk(counter, pSrc, band, *pState);
    return counter.Status();
}

} // namespace

IppStatus ippiEncodeHuffman8x8_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                             std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                             std::int16_t* pLastDC, const ippiEncodeHuffmanSpec* pDcTable,
                                             const ippiEncodeHuffmanSpec* pAcTable,
                                             ippiEncodeHuffmanState* pState, std::int32_t bFlush) {
    if (const IppStatus nStatus = CheckWriter(pDst, nDstSize, pDstCurrPos, pState))
        return nStatus;
    BitWriter writer(pDst, nDstSize, *pDstCurrPos, *pState);
    if (bFlush) {
        writer.Pad();
        return writer.Status();
    }
    if (!pSrc || !pLastDC || !pDcTable || !pAcTable)
        return ippStsNullPtrErr;
    writer.UseTable(pDcTable);
    CodeDc(writer, pSrc[0] - *pLastDC);
    *pLastDC = pSrc[0];
    writer.UseTable(pAcTable);
    CodeBlock(writer, pSrc);
    return writer.Status();
}

IppStatus ippiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                                     std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                                     std::int16_t* pLastDC, std::int32_t nAl,
                                                     const ippiEncodeHuffmanSpec* pDcTable,
                                                     ippiEncodeHuffmanState* pState, std::int32_t bFlush) {
    if (const IppStatus nStatus = CheckWriter(pDst, nDstSize, pDstCurrPos, pState))
        return nStatus;
    BitWriter writer(pDst, nDstSize, *pDstCurrPos, *pState);
    if (bFlush) {
        writer.Pad();
        return writer.Status();
    }
    if (!pSrc || !pLastDC || !pDcTable)
        return ippStsNullPtrErr;
    if (!IsEncodableAl(nAl))
        return ippStsBadArgument;
    writer.UseTable(pDcTable);
    CodeDcFirst(writer, pSrc[0], nAl, *pLastDC);
    return writer.Status();
}

IppStatus ippiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                                      std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                                      std::int32_t nAl, ippiEncodeHuffmanState* pState,
                                                      std::int32_t bFlush) {
    if (const IppStatus nStatus = CheckWriter(pDst, nDstSize, pDstCurrPos, pState))
        return nStatus;
    BitWriter writer(pDst, nDstSize, *pDstCurrPos, *pState);
    if (bFlush) {
        writer.Pad();
        return writer.Status();
    }
    if (!pSrc)
        return ippStsNullPtrErr;
    if (!IsEncodableAl(nAl))
        return ippStsBadArgument;
    writer.Bits(static_cast<std::uint32_t>(pSrc[0] >> nAl), 1);
    return writer.Status();
}

IppStatus ippiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                                     std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                                     std::int32_t nSs, std::int32_t nSe, std::int32_t nAl,
                                                     const ippiEncodeHuffmanSpec* pAcTable,
                                                     ippiEncodeHuffmanState* pState, std::int32_t bFlush) {
    return WriteAc(&CodeAcFirst<BitWriter>, pSrc, pDst, nDstSize, pDstCurrPos, {nSs, nSe, nAl}, pAcTable,
                   pState, bFlush);
}

IppStatus ippiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1(const std::int16_t* pSrc, std::uint8_t* pDst,
                                                      std::int32_t nDstSize, std::int32_t* pDstCurrPos,
                                                      std::int32_t nSs, std::int32_t nSe, std::int32_t nAl,
                                                      const ippiEncodeHuffmanSpec* pAcTable,
                                                      ippiEncodeHuffmanState* pState, std::int32_t bFlush) {
    return WriteAc(&CodeAcRefine<BitWriter>, pSrc, pDst, nDstSize, pDstCurrPos, {nSs, nSe, nAl}, pAcTable,
                   pState, bFlush);
}

IppStatus ippiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1(const std::int16_t* pSrc,
                                                          std::uint32_t* pStatistics, std::int16_t* pLastDC,
                                                          std::int32_t nAl) {
    if (!pSrc || !pStatistics || !pLastDC)
        return ippStsNullPtrErr;
    if (!IsEncodableAl(nAl))
        return ippStsBadArgument;
    SymbolCounter counter(pStatistics);
    CodeDcFirst(counter, pSrc[0], nAl, *pLastDC);
    return counter.Status();
}

IppStatus ippiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1(const std::int16_t* pSrc,
                                                          std::uint32_t* pStatistics, std::int32_t nSs,
                                                          std::int32_t nSe, std::int32_t nAl,
                                                          ippiEncodeHuffmanState* pState,
                                                          std::int32_t bFlush) {
    return CountAc(&CodeAcFirst<SymbolCounter>, pSrc, pStatistics, {nSs, nSe, nAl}, pState, bFlush);
}

IppStatus ippiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(const std::int16_t* pSrc,
                                                           std::uint32_t* pStatistics, std::int32_t nSs,
                                                           std::int32_t nSe, std::int32_t nAl,
                                                           ippiEncodeHuffmanState* pState,
                                                           std::int32_t bFlush) {
    return CountAc(&CodeAcRefine<SymbolCounter>, pSrc, pStatistics, {nSs, nSe, nAl}, pState, bFlush);
}

} // namespace KERNEL_TARGET
