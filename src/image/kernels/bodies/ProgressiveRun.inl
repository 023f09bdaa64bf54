// Progressive scans over many blocks: the procedures of ProgressiveEntropy.inl with one bit reader for all
// blocks and, for AC scans, with masks in place of walks over the coefficients.

namespace KERNEL_TARGET {
namespace {

// Bits nFrom to nEnd - 1; nFrom is 63 at most.
inline std::uint64_t MaskOf(std::int32_t nFrom, std::int32_t nEnd) {
    const std::uint64_t nFromOn = ~std::uint64_t{0} << nFrom;
    return nEnd > 63 ? nFromOn : nFromOn & ~(~std::uint64_t{0} << nEnd);
}

// The number of blocks that an end-of-band symbol of this run speaks for.
inline std::int32_t FastEobRun(FastBitReader& bits, std::uint32_t nRun) {
    std::int32_t nBlocks = 1 << nRun;
    if (nRun > 0) {
        nBlocks += static_cast<std::int32_t>(bits.Peek(nRun));
        bits.Drop(nRun);
    }
    return nBlocks;
}

// False when the reader gave up.
inline bool FastAcFirst(FastBitReader& bits, std::int16_t* pDst, std::uint64_t& nMask,
                        const IppProgressiveRow& row, std::int32_t& nEobRun) {
    for (std::int32_t k = row.nSs; k <= row.nSe; ++k) {
        bits.Refill();
        std::uint32_t nRun = 0;
        std::int32_t nValue = 0;
        if (const std::uint32_t nEntry = row.pTable->aRun[bits.Peek(ippDecodeRunBits)]; nEntry >> 16 != 0) {
            bits.Drop(nEntry & 0xFF);
            nRun = (nEntry >> 8 & 0xFF) - 1;
            nValue = static_cast<std::int16_t>(nEntry >> 16);
        } else {
            const std::uint32_t nSymbol = bits.Symbol(*row.pTable);
            nRun = nSymbol >> 4 & 15;
            if (const std::uint32_t nSize = nSymbol & 15) {
                nValue = bits.Value(nSize);
            } else if (nRun < 15) {
                nEobRun = FastEobRun(bits, nRun) - 1;
                return !bits.GaveUp();
            }
        }
        k += static_cast<std::int32_t>(nRun);
        if (nValue == 0)
            continue;
        if (k > 63 || bits.GaveUp())
            return false;
        const std::int16_t nStored = ShiftLeft(nValue, row.nAl);
        pDst[g_aZigZag[k]] = nStored;
        nMask = (nMask & ~(std::uint64_t{1} << k)) | std::uint64_t{nStored != 0} << k;
    }
    return !bits.GaveUp();
}

// One correction bit for each coefficient of nMask. Away from zero by a step, unless the step is there.
inline void FastCorrect(FastBitReader& bits, std::int16_t* pDst, std::uint64_t nMask, std::int32_t nAl) {
    while (nMask != 0) {
        bits.Refill();
        std::uint32_t nBits = bits.Peek(32);
        std::uint32_t nTaken = 0;
        for (; nMask != 0 && nTaken < 32; ++nTaken, nBits <<= 1, nMask &= nMask - 1) {
            std::int16_t& nCoefficient = pDst[g_aZigZag[__builtin_ctzll(nMask)]];
            const std::int32_t nSign = nCoefficient >> 15;
            const std::int32_t nStep = static_cast<std::int32_t>(nBits >> 31 << nAl) & ~nCoefficient;
            nCoefficient = static_cast<std::int16_t>(nCoefficient + ((nStep ^ nSign) - nSign));
        }
        bits.Drop(nTaken);
        if (bits.GaveUp())
            return;
    }
}

inline bool FastAcRefine(FastBitReader& bits, std::int16_t* pDst, std::uint64_t& nMask,
                         const IppProgressiveRow& row, std::int32_t& nEobRun) {
    const std::uint64_t nBand = MaskOf(row.nSs, row.nSe + 1);
    std::int32_t k = row.nSs;
    while (k <= row.nSe && nEobRun == 0) {
        bits.Refill();
        const std::uint32_t nSymbol = bits.Symbol(*row.pTable);
        std::uint32_t nRun = nSymbol >> 4 & 15;
        const std::uint32_t nSize = nSymbol & 15;
        if (nSize == 0 && nRun < 15) {
            nEobRun = FastEobRun(bits, nRun);
            break;
        }
        if (nSize > 1)
            return false;
        const std::uint32_t nPositive = bits.Peek(1);
        bits.Drop(nSize);
        // The place of the zero that nRun others precede, or the one behind the band.
        std::uint64_t nZeros = ~nMask & nBand & MaskOf(k, 64);
        for (; nRun > 0 && nZeros != 0; --nRun)
            nZeros &= nZeros - 1;
        const std::int32_t nPlace = nZeros != 0 ? __builtin_ctzll(nZeros) : row.nSe + 1;
        FastCorrect(bits, pDst, nMask & MaskOf(k, nPlace), row.nAl);
        if (bits.GaveUp() || (nSize == 1 && nPlace > 63))
            return false;
        if (nSize == 1) {
            pDst[g_aZigZag[nPlace]] = ShiftLeft(nPositive != 0 ? 1 : -1, row.nAl);
            nMask |= std::uint64_t{1} << nPlace;
        }
        k = nPlace + 1;
    }
    if (nEobRun > 0) {
        if (k <= row.nSe)
            FastCorrect(bits, pDst, nMask & MaskOf(k, row.nSe + 1), row.nAl);
        --nEobRun;
    }
    return !bits.GaveUp();
}

// A block that an end-of-band run passes over costs no look at its coefficients.
inline bool FastAcBlock(FastBitReader& bits, std::int16_t* pDst, std::uint64_t& nMask,
                        const IppProgressiveRow& row, std::int32_t& nEobRun) {
    if (nEobRun > 0 && (!row.bRefine || (nMask & MaskOf(row.nSs, row.nSe + 1)) == 0)) {
        --nEobRun;
        return true;
    }
    FastBitReader trial = bits;
    std::uint64_t nTrialMask = nMask;
    std::int32_t nTrialRun = nEobRun;
    if (!row.bRefine) {
        if (!FastAcFirst(trial, pDst, nTrialMask, row, nTrialRun))
            return false;
    } else {
        std::int16_t aBefore[64];
        std::memcpy(aBefore, pDst, sizeof aBefore);
        if (!FastAcRefine(trial, pDst, nTrialMask, row, nTrialRun)) {
            std::memcpy(pDst, aBefore, sizeof aBefore);
            return false;
        }
    }
    bits = trial;
    nMask = nTrialMask;
    nEobRun = nTrialRun;
    return true;
}

} // namespace

namespace {

inline bool FastDcFirst(FastBitReader& bits, std::int16_t* pMcu, const IppProgressiveMcus& mcus,
                        std::int16_t (&anLastDc)[4]) {
    for (std::int32_t i = 0; i < mcus.nBlocks; ++i) {
        if (!mcus.apTables[i])
            continue;
        bits.Refill();
        std::int16_t& nLastDc = anLastDc[mcus.anComponents[i]];
        if (const std::uint32_t nSize = bits.Symbol(*mcus.apTables[i]) & 15)
            nLastDc = AddDc(nLastDc, bits.Value(nSize));
        pMcu[64 * i] = ShiftLeft(nLastDc, mcus.nAl);
    }
    return !bits.GaveUp();
}

inline bool FastDcRefine(FastBitReader& bits, std::int16_t* pMcu, const IppProgressiveMcus& mcus) {
    bits.Refill();
    std::uint32_t nBits = bits.Peek(32);
    bits.Drop(static_cast<std::uint32_t>(mcus.nNamed));
    if (bits.GaveUp())
        return false;
    for (std::int32_t i = 0; i < mcus.nBlocks; ++i) {
        if (!mcus.abNamed[i])
            continue;
        pMcu[64 * i] =
            static_cast<std::int16_t>(pMcu[64 * i] | static_cast<std::int32_t>(nBits >> 31 << mcus.nAl));
        nBits <<= 1;
    }
    return true;
}

} // namespace

IppStatus ippiDecodeProgressiveMcus_JPEG_1u16s(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                               std::int32_t* pSrcCurrPos, const std::int32_t* pMarker,
                                               ippiDecodeHuffmanState* pState, IppProgressiveMcus* pMcus,
                                               std::int32_t nMcus, std::int32_t* pDone) {
    if (!pMcus || !pDone)
        return ippStsNullPtrErr;
    if (const IppStatus nStatus = CheckProgressive(pSrc, nSrcSize, pSrcCurrPos, pMcus->pBlocks, pMarker,
                                                   pState, {kAnySs, kAnySe, pMcus->nAl}))
        return nStatus;
    if (nMcus < 0 || pMcus->nBlocks < 1 || pMcus->nBlocks > ippMaxMcuBlocks)
        return ippStsBadArgument;
    FastBitReader bits(pSrc, nSrcSize, *pSrcCurrPos, *pMarker, *pState);
    std::int16_t anLastDc[4];
    std::copy_n(pMcus->anLastDc, 4, anLastDc);
    std::int32_t nDone = 0;
    for (std::int16_t* pMcu = pMcus->pBlocks; nDone < nMcus && !bits.GaveUp();
         ++nDone, pMcu += 64 * pMcus->nBlocks) {
        FastBitReader trial = bits;
        if (!(pMcus->bRefine ? FastDcRefine(trial, pMcu, *pMcus)
                             : FastDcFirst(trial, pMcu, *pMcus, anLastDc)))
            break;
        bits = trial;
        std::copy_n(anLastDc, 4, pMcus->anLastDc);
    }
    if (nDone > 0)
        bits.Commit(*pSrcCurrPos, *pState);
    *pDone = nDone;
    return ippStsNoErr;
}

IppStatus ippiDecodeProgressiveRow_JPEG_1u16s(const std::uint8_t* pSrc, std::int32_t nSrcSize,
                                              std::int32_t* pSrcCurrPos, const std::int32_t* pMarker,
                                              ippiDecodeHuffmanState* pState, const IppProgressiveRow* pRow,
                                              std::int32_t nFirst, std::int32_t nBlocks,
                                              std::int32_t* pDone) {
    if (!pRow || !pDone || !pRow->pTable || !pRow->pMasks)
        return ippStsNullPtrErr;
    if (const IppStatus nStatus = CheckProgressive(pSrc, nSrcSize, pSrcCurrPos, pRow->pBlocks, pMarker,
                                                   pState, {pRow->nSs, pRow->nSe, pRow->nAl}))
        return nStatus;
    if (nFirst < 0 || nBlocks < 0 || pRow->nTogether < 1 || pRow->nMcuBlocks < pRow->nTogether)
        return ippStsBadArgument;
    FastBitReader bits(pSrc, nSrcSize, *pSrcCurrPos, *pMarker, *pState);
    std::int32_t nEobRun = pState->nEobRun;
    std::int32_t nDone = 0;
    std::int32_t nInMcu = nFirst % pRow->nTogether;
    std::ptrdiff_t nBlock = std::ptrdiff_t{nFirst / pRow->nTogether} * pRow->nMcuBlocks + nInMcu;
    for (; nDone < nBlocks && !bits.GaveUp(); ++nDone) {
        if (!FastAcBlock(bits, pRow->pBlocks + 64 * nBlock, pRow->pMasks[nBlock], *pRow, nEobRun))
            break;
        ++nBlock;
        if (++nInMcu == pRow->nTogether) {
            nInMcu = 0;
            nBlock += pRow->nMcuBlocks - pRow->nTogether;
        }
    }
    if (nDone > 0) {
        bits.Commit(*pSrcCurrPos, *pState);
        pState->nEobRun = nEobRun;
    }
    *pDone = nDone;
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
