// Huffman decoding of progressive scans (T.81 G.1.2 and G.2).
//
// Each procedure stands here once, over either reader: it is tried with the fast one and, where that gives
// up, done again by the slow one, which defines the outcome.
#pragma once

#include "image/kernels/bodies/Decode.inl"

namespace KERNEL_TARGET {
namespace {

// What the procedures ask for, from the slow reader.
class SlowScanReader {
public:
    explicit SlowScanReader(SlowBitReader& bits) : m_bits(bits) {}

    IppStatus Symbol(const ippiDecodeHuffmanSpec& huffman, std::uint32_t& nSymbol) {
        return m_bits.Symbol(huffman, nSymbol);
    }
    IppStatus Take(std::uint32_t nCount, std::uint32_t& nBits) {
        return m_bits.Take(static_cast<std::int32_t>(nCount), nBits);
    }
    // A symbol with the value that follows it, which is never 0, or 0 where none does.
    IppStatus Coefficient(const ippiDecodeHuffmanSpec& huffman, std::uint32_t& nRun, std::int32_t& nValue) {
        std::uint32_t nSymbol = 0;
        nValue = 0;
        if (const IppStatus nStatus = m_bits.Symbol(huffman, nSymbol))
            return nStatus;
        nRun = nSymbol >> 4 & 15;
        const std::uint32_t nSize = nSymbol & 15;
        if (nSize == 0)
            return ippStsNoErr;
        std::uint32_t nRaw = 0;
        if (const IppStatus nStatus = Take(nSize, nRaw))
            return nStatus;
        nValue = ReceiveExtend(nRaw, nSize);
        return ippStsNoErr;
    }

private:
    SlowBitReader& m_bits;
};

// The same from the fast one. Any status but 0 says that it gave up.
class FastScanReader {
public:
    explicit FastScanReader(FastBitReader& bits) : m_bits(bits) {}

    IppStatus Symbol(const ippiDecodeHuffmanSpec& huffman, std::uint32_t& nSymbol) {
        m_bits.Refill();
        nSymbol = m_bits.Symbol(huffman);
        return Status();
    }
    IppStatus Take(std::uint32_t nCount, std::uint32_t& nBits) {
        m_bits.Refill();
        nBits = m_bits.Peek(nCount);
        m_bits.Drop(nCount);
        return Status();
    }
    IppStatus Coefficient(const ippiDecodeHuffmanSpec& huffman, std::uint32_t& nRun, std::int32_t& nValue) {
        m_bits.Refill();
        const std::uint32_t nEntry = huffman.aRun[m_bits.Peek(ippDecodeRunBits)];
        nValue = static_cast<std::int16_t>(nEntry >> 16);
        if (nValue != 0) {
            m_bits.Drop(nEntry & 0xFF);
            nRun = (nEntry >> 8 & 0xFF) - 1;
            return Status();
        }
        const std::uint32_t nSymbol = m_bits.Symbol(huffman);
        nRun = nSymbol >> 4 & 15;
        if (const std::uint32_t nSize = nSymbol & 15)
            nValue = m_bits.Value(nSize);
        return Status();
    }

private:
    IppStatus Status() const { return m_bits.GaveUp() ? ippStsBufferEnd : ippStsNoErr; }

    FastBitReader& m_bits;
};

struct Band {
    std::int32_t nSs;
    std::int32_t nSe;
    std::int32_t nAl;
};

// Sums and shifts beyond 16 bits wrap: only damaged data has them.
inline std::int16_t ShiftLeft(std::int32_t nValue, std::int32_t nAl) {
    return static_cast<std::int16_t>(static_cast<std::uint32_t>(nValue) << nAl);
}

// The run that a symbol of size 0 and run below 15 begins, this block included.
template <typename Reader>
IppStatus TakeEobRun(Reader& reader, std::uint32_t nRun, std::int32_t& nEobRun) {
    std::uint32_t nExtra = 0;
    if (nRun > 0) {
        if (const IppStatus nStatus = reader.Take(nRun, nExtra))
            return nStatus;
    }
    nEobRun = static_cast<std::int32_t>((1u << nRun) + nExtra);
    return ippStsNoErr;
}

template <typename Reader>
IppStatus DecodeDcFirst(Reader& reader, std::int16_t& nLastDc, const ippiDecodeHuffmanSpec& table) {
    std::uint32_t nSymbol = 0;
    if (const IppStatus nStatus = reader.Symbol(table, nSymbol))
        return nStatus;
    if (const std::uint32_t nSize = nSymbol & 15) {
        std::uint32_t nRaw = 0;
        if (const IppStatus nStatus = reader.Take(nSize, nRaw))
            return nStatus;
        nLastDc = AddDc(nLastDc, ReceiveExtend(nRaw, nSize));
    }
    return ippStsNoErr;
}

// A run that passes the band's end is treated as in a sequential block: kept at the last place when it ends
// within eight of it, refused farther out.
template <typename Reader>
IppStatus DecodeAcFirst(Reader& reader, std::int16_t* pDst, const Band& band,
                        const ippiDecodeHuffmanSpec& table, std::int32_t& nEobRun) {
    for (std::int32_t k = band.nSs; k <= band.nSe; ++k) {
        std::uint32_t nRun = 0;
        std::int32_t nValue = 0;
        if (const IppStatus nStatus = reader.Coefficient(table, nRun, nValue))
            return nStatus;
        if (nValue == 0 && nRun < 15) {
            if (const IppStatus nStatus = TakeEobRun(reader, nRun, nEobRun))
                return nStatus;
            --nEobRun;
            return ippStsNoErr;
        }
        k += static_cast<std::int32_t>(nRun);
        if (nValue == 0)
            continue;
        const std::uint8_t nPlace = g_aZigZag[k];
        if (nPlace > 63)
            return ippStsBadRun;
        pDst[nPlace] = ShiftLeft(nValue, band.nAl);
    }
    return ippStsNoErr;
}

// Passes over coefficients from k on, giving those that are not zero their correction bit, up to the zero
// that nRun others precede, or to the band's end.
template <typename Reader>
IppStatus CorrectCoefficients(Reader& reader, std::int16_t* pDst, const Band& band, std::int32_t& k,
                              std::uint32_t nRun) {
    for (; k <= band.nSe; ++k) {
        std::int16_t& nCoefficient = pDst[g_aZigZag[k]];
        if (nCoefficient == 0) {
            if (nRun-- == 0)
                break;
            continue;
        }
        std::uint32_t nBit = 0;
        if (const IppStatus nStatus = reader.Take(1, nBit))
            return nStatus;
        const std::int32_t nStep = static_cast<std::int32_t>(nBit) << band.nAl;
        if ((nCoefficient & nStep) == 0)
            nCoefficient = static_cast<std::int16_t>(nCoefficient + (nCoefficient < 0 ? -nStep : nStep));
    }
    return ippStsNoErr;
}

template <typename Reader>
IppStatus DecodeAcRefine(Reader& reader, std::int16_t* pDst, const Band& band,
                         const ippiDecodeHuffmanSpec& table, std::int32_t& nEobRun) {
    constexpr std::uint32_t kToTheEnd = 64; // more zeros than a band has
    std::int32_t k = band.nSs;
    while (k <= band.nSe && nEobRun == 0) {
        std::uint32_t nSymbol = 0;
        if (const IppStatus nStatus = reader.Symbol(table, nSymbol))
            return nStatus;
        const std::uint32_t nRun = nSymbol >> 4 & 15;
        const std::uint32_t nSize = nSymbol & 15;
        if (nSize == 0 && nRun < 15) {
            if (const IppStatus nStatus = TakeEobRun(reader, nRun, nEobRun))
                return nStatus;
            break;
        }
        if (nSize > 1)
            return ippStsMarkerOrNoCode;
        std::uint32_t nSign = 0;
        if (nSize == 1) {
            if (const IppStatus nStatus = reader.Take(1, nSign))
                return nStatus;
        }
        if (const IppStatus nStatus = CorrectCoefficients(reader, pDst, band, k, nRun))
            return nStatus;
        if (nSize == 1)
            pDst[g_aZigZag[k]] = ShiftLeft(nSign != 0 ? 1 : -1, band.nAl);
        ++k;
    }
    if (nEobRun == 0)
        return ippStsNoErr;
    if (const IppStatus nStatus = CorrectCoefficients(reader, pDst, band, k, kToTheEnd))
        return nStatus;
    --nEobRun;
    return ippStsNoErr;
}

// True when no coefficient but the first is set, so that an end-of-band run has nothing to correct.
inline bool HasNoAc(const std::int16_t* pBlock) {
    std::uint64_t aWords[16];
    std::memcpy(aWords, pBlock, sizeof aWords);
    std::int16_t aFirst[4] = {pBlock[0], 0, 0, 0};
    std::uint64_t nDc = 0;
    std::memcpy(&nDc, aFirst, sizeof nDc);
    std::uint64_t nAll = aWords[0] ^ nDc;
    for (int i = 1; i < 16; ++i)
        nAll |= aWords[i];
    return nAll == 0;
}

// Runs a procedure with the fast reader and, where that gives up, undoes and runs it with the slow one.
template <typename Procedure, typename Undo>
IppStatus DecodeEitherWay(const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t& nPos,
                          std::int32_t& nMarker, ippiDecodeHuffmanState& state, Procedure procedure,
                          Undo undo) {
    FastBitReader fast(pSrc, nSrcSize, nPos, nMarker, state);
    if (!fast.GaveUp()) {
        FastScanReader reader(fast);
        if (procedure(reader) == ippStsNoErr) {
            fast.Commit(nPos, state);
            return ippStsNoErr;
        }
        undo();
    }
    SlowBitReader slow(pSrc, nSrcSize, nPos, nMarker, state);
    SlowScanReader reader(slow);
    return procedure(reader);
}

IppStatus CheckProgressive(const std::uint8_t* pSrc, std::int32_t nSrcSize, const std::int32_t* pSrcCurrPos,
                           const std::int16_t* pDst, const std::int32_t* pMarker,
                           const ippiDecodeHuffmanState* pState, const Band& band) {
    if (!pSrc || !pSrcCurrPos || !pDst || !pMarker || !pState)
        return ippStsNullPtrErr;
    if (nSrcSize < 0 || *pSrcCurrPos < 0 || band.nAl < 0 || band.nAl > 13)
        return ippStsBadArgument;
    if (band.nSs < 1 || band.nSe < band.nSs || band.nSe > 63)
        return ippStsBadArgument;
    return ippStsNoErr;
}

constexpr std::int32_t kAnySs = 1; // for the kernels without a band
constexpr std::int32_t kAnySe = 63;

} // namespace

IppStatus ippiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                                     std::int32_t* pSrcCurrPos, std::int16_t* pDst,
                                                     std::int16_t* pLastDC, std::int32_t* pMarker,
                                                     std::int32_t nAl, const ippiDecodeHuffmanSpec* pDcTable,
                                                     ippiDecodeHuffmanState* pState) {
    if (!pLastDC || !pDcTable)
        return ippStsNullPtrErr;
    if (const IppStatus nStatus =
            CheckProgressive(pSrc, nSrcSize, pSrcCurrPos, pDst, pMarker, pState, {kAnySs, kAnySe, nAl}))
        return nStatus;
    std::int16_t nDc = *pLastDC;
    const IppStatus nStatus = DecodeEitherWay(
        pSrc, nSrcSize, *pSrcCurrPos, *pMarker, *pState,
        [&](auto& reader) { return DecodeDcFirst(reader, nDc, *pDcTable); }, [&] { nDc = *pLastDC; });
    if (nStatus != ippStsNoErr)
        return nStatus;
    *pLastDC = nDc;
    pDst[0] = ShiftLeft(nDc, nAl);
    return ippStsNoErr;
}

IppStatus ippiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                                      std::int32_t* pSrcCurrPos, std::int16_t* pDst,
                                                      std::int32_t* pMarker, std::int32_t nAl,
                                                      ippiDecodeHuffmanState* pState) {
    if (const IppStatus nStatus =
            CheckProgressive(pSrc, nSrcSize, pSrcCurrPos, pDst, pMarker, pState, {kAnySs, kAnySe, nAl}))
        return nStatus;
    std::uint32_t nBit = 0;
    SlowBitReader bits(pSrc, nSrcSize, *pSrcCurrPos, *pMarker, *pState);
    if (const IppStatus nStatus = bits.Take(1, nBit))
        return nStatus;
    pDst[0] = static_cast<std::int16_t>(pDst[0] | static_cast<std::int32_t>(nBit) << nAl);
    return ippStsNoErr;
}

IppStatus ippiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                                     std::int32_t* pSrcCurrPos, std::int16_t* pDst,
                                                     std::int32_t nSs, std::int32_t nSe, std::int32_t nAl,
                                                     std::int32_t* pMarker,
                                                     const ippiDecodeHuffmanSpec* pAcTable,
                                                     ippiDecodeHuffmanState* pState) {
    const Band band{nSs, nSe, nAl};
    if (!pAcTable)
        return ippStsNullPtrErr;
    if (const IppStatus nStatus = CheckProgressive(pSrc, nSrcSize, pSrcCurrPos, pDst, pMarker, pState, band))
        return nStatus;
    if (pState->nEobRun > 0) {
        --pState->nEobRun;
        return ippStsNoErr;
    }
    // Nothing to undo: what the fast reader wrote before it gave up, the slow one writes again.
    std::int32_t nEobRun = 0;
    const IppStatus nStatus = DecodeEitherWay(
        pSrc, nSrcSize, *pSrcCurrPos, *pMarker, *pState,
        [&](auto& reader) { return DecodeAcFirst(reader, pDst, band, *pAcTable, nEobRun); },
        [&] { nEobRun = 0; });
    pState->nEobRun = nEobRun;
    return nStatus;
}

IppStatus ippiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                                      std::int32_t* pSrcCurrPos, std::int16_t* pDst,
                                                      std::int32_t nSs, std::int32_t nSe, std::int32_t nAl,
                                                      std::int32_t* pMarker,
                                                      const ippiDecodeHuffmanSpec* pAcTable,
                                                      ippiDecodeHuffmanState* pState) {
    const Band band{nSs, nSe, nAl};
    if (!pAcTable)
        return ippStsNullPtrErr;
    if (const IppStatus nStatus = CheckProgressive(pSrc, nSrcSize, pSrcCurrPos, pDst, pMarker, pState, band))
        return nStatus;
    if (pState->nEobRun > 0 && HasNoAc(pDst)) {
        --pState->nEobRun;
        return ippStsNoErr;
    }
    std::int16_t aBefore[64];
    std::memcpy(aBefore, pDst, sizeof aBefore);
    std::int32_t nEobRun = pState->nEobRun;
    const IppStatus nStatus = DecodeEitherWay(
        pSrc, nSrcSize, *pSrcCurrPos, *pMarker, *pState,
        [&](auto& reader) { return DecodeAcRefine(reader, pDst, band, *pAcTable, nEobRun); },
        [&] {
            std::memcpy(pDst, aBefore, sizeof aBefore);
            nEobRun = pState->nEobRun;
        });
    pState->nEobRun = nEobRun;
    return nStatus;
}

} // namespace KERNEL_TARGET
