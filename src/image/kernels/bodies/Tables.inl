// Quantisation and Huffman decoding tables.

namespace KERNEL_TARGET {

IppStatus ippiQuantInvTableInit_JPEG_8u16u(const std::uint8_t* pRawTable, std::uint16_t* pTable) {
    if (!pRawTable || !pTable)
        return ippStsNullPtrErr;
    for (int i = 0; i < 64; ++i)
        pTable[g_aZigZag[i]] = pRawTable[i];
    return ippStsNoErr;
}

namespace {

// Canonical codes (T.81 C.2 and F.2.2.3). False when the lengths over-fill the code space.
bool AssignCodes(const std::uint8_t* pBits, const std::uint8_t* pValues, ippiDecodeHuffmanSpec& spec) {
    std::int32_t nCode = 0;
    std::int32_t nIndex = 0;
    for (std::int32_t nLength = 1; nLength <= 16; ++nLength, nCode <<= 1) {
        const std::int32_t nCount = pBits[nLength - 1];
        if (nIndex + nCount > 256 || nCode + nCount > 1 << nLength)
            return false;
        if (nCount == 0)
            continue;
        spec.aValueIndex[nLength] = nIndex;
        spec.aMinCode[nLength] = nCode;
        for (std::int32_t i = 0; i < nCount; ++i, ++nCode, ++nIndex) {
            spec.aValues[nIndex] = pValues[nIndex];
            if (nLength <= 8) {
                const auto nEntry = static_cast<std::uint32_t>(nLength << 16 | pValues[nIndex]);
                std::fill_n(spec.aFast + (nCode << (8 - nLength)), 1 << (8 - nLength), nEntry);
            }
        }
        spec.aMaxCode[nLength] = nCode - 1;
    }
    return true;
}

// A table in which no code is found.
void ClearSpec(ippiDecodeHuffmanSpec& spec) {
    std::memset(static_cast<void*>(&spec), 0, sizeof spec);
    std::fill_n(spec.aMaxCode, 17, -1);
    spec.aMaxCode[17] = 0x7FFFFFFF;
}

// The AC coefficients that ippDecodeRunBits bits hold whole: code (here of up to 8 bits) and value.
void FillRunTable(ippiDecodeHuffmanSpec& spec) {
    for (std::uint32_t nBits = 0; nBits < 1u << ippDecodeRunBits; ++nBits) {
        const std::uint32_t nFast = spec.aFast[nBits >> (ippDecodeRunBits - 8)];
        if (nFast == 0)
            continue;
        const std::uint32_t nLength = nFast >> 16;
        const std::uint32_t nRun = nFast >> 4 & 15;
        const std::uint32_t nSize = nFast & 15;
        if (nSize == 0) {
            spec.aRun[nBits] = (nRun == 15 ? 16u : 64u) << 8 | nLength;
        } else if (nLength + nSize <= std::uint32_t{ippDecodeRunBits}) {
            const std::uint32_t nRaw = nBits >> (ippDecodeRunBits - nLength - nSize) & ((1u << nSize) - 1);
            const auto nValue = static_cast<std::uint32_t>(ReceiveExtend(nRaw, nSize));
            spec.aRun[nBits] = nValue << 16 | (nRun + 1) << 8 | (nLength + nSize);
        }
    }
}

} // namespace

IppStatus ippiDecodeHuffmanSpecInit_JPEG_8u(const std::uint8_t* pBits, const std::uint8_t* pValues,
                                            ippiDecodeHuffmanSpec** ppSpec) {
    if (!pBits || !pValues || !ppSpec)
        return ippStsNullPtrErr;
    *ppSpec = static_cast<ippiDecodeHuffmanSpec*>(ippMalloc(sizeof(ippiDecodeHuffmanSpec)));
    if (!*ppSpec)
        return ippStsNullPtrErr;
    ippiDecodeHuffmanSpec& spec = *::new (*ppSpec) ippiDecodeHuffmanSpec;
    ClearSpec(spec);
    if (!AssignCodes(pBits, pValues, spec)) {
        ClearSpec(spec);
        return ippStsHuffmanTableErr;
    }
    FillRunTable(spec);
    return ippStsNoErr;
}

IppStatus ippiDecodeHuffmanSpecFree_JPEG_8u(ippiDecodeHuffmanSpec* pSpec) {
    if (!pSpec)
        return ippStsNullPtrErr;
    ippFree(pSpec);
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
