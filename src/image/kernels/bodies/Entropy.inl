// Huffman decoding of one block (T.81 F.2.2.1 and F.2.2.2), twice: by the reader that defines the outcome and
// by the fast one, which either gives the same or nothing.

namespace KERNEL_TARGET {

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
    if (!pState)
        return ippStsNullPtrErr;
    ippFree(pState);
    return ippStsNoErr;
}

namespace {

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
