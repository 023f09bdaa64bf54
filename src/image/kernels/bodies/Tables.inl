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
bool AssignCodes(const std::uint8_t* pBits, const std::uint8_t* pValues, ippiDecodeHuffmanSpec& huffman) {
    std::int32_t nCode = 0;
    std::int32_t nIndex = 0;
    for (std::int32_t nLength = 1; nLength <= 16; ++nLength, nCode <<= 1) {
        const std::int32_t nCount = pBits[nLength - 1];
        if (nIndex + nCount > 256 || nCode + nCount > 1 << nLength)
            return false;
        if (nCount == 0)
            continue;
        huffman.aValueIndex[nLength] = nIndex;
        huffman.aMinCode[nLength] = nCode;
        for (std::int32_t i = 0; i < nCount; ++i, ++nCode, ++nIndex) {
            huffman.aValues[nIndex] = pValues[nIndex];
            if (nLength <= 8) {
                const auto nEntry = static_cast<std::uint32_t>(nLength << 16 | pValues[nIndex]);
                std::fill_n(huffman.aFast + (nCode << (8 - nLength)), 1 << (8 - nLength), nEntry);
            }
        }
        huffman.aMaxCode[nLength] = nCode - 1;
    }
    return true;
}

// A table in which no code is found.
void ClearSpec(ippiDecodeHuffmanSpec& huffman) {
    std::memset(static_cast<void*>(&huffman), 0, sizeof huffman);
    std::fill_n(huffman.aMaxCode, 17, -1);
    huffman.aMaxCode[17] = 0x7FFFFFFF;
}

// The AC coefficients that ippDecodeRunBits bits hold whole: code (here of up to 8 bits) and value. Each code
// fills the entries that begin with it.
void FillRunTable(ippiDecodeHuffmanSpec& huffman) {
    constexpr std::uint32_t kBits = ippDecodeRunBits;
    for (std::uint32_t nFirst = 0; nFirst < 256;) {
        const std::uint32_t nFast = huffman.aFast[nFirst];
        if (nFast == 0) {
            ++nFirst;
            continue;
        }
        const std::uint32_t nLength = nFast >> 16;
        const std::uint32_t nRun = nFast >> 4 & 15;
        const std::uint32_t nSize = nFast & 15;
        std::uint32_t* pEntries = huffman.aRun + (nFirst << (kBits - 8));
        nFirst += 1u << (8 - nLength);
        if (nSize == 0) {
            std::fill_n(pEntries, 1u << (kBits - nLength), (nRun == 15 ? 16u : 64u) << 8 | nLength);
        } else if (nLength + nSize <= kBits) {
            const std::uint32_t nEach = 1u << (kBits - nLength - nSize);
            for (std::uint32_t nRaw = 0; nRaw < 1u << nSize; ++nRaw, pEntries += nEach) {
                const auto nValue = static_cast<std::uint32_t>(ReceiveExtend(nRaw, nSize));
                std::fill_n(pEntries, nEach, nValue << 16 | (nRun + 1) << 8 | (nLength + nSize));
            }
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
    ippiDecodeHuffmanSpec& huffman = *::new (*ppSpec) ippiDecodeHuffmanSpec;
    ClearSpec(huffman);
    if (!AssignCodes(pBits, pValues, huffman)) {
        ClearSpec(huffman);
        return ippStsHuffmanTableErr;
    }
    FillRunTable(huffman);
    return ippStsNoErr;
}

IppStatus ippiDecodeHuffmanSpecFree_JPEG_8u(ippiDecodeHuffmanSpec* pSpec) {
    if (!pSpec)
        return ippStsNullPtrErr;
    ippFree(pSpec);
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
