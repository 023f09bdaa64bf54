KERNEL(ippiDecodeHuffman8x8_DCFirst_JPEG_1u16s_C1,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos, std::int16_t* pDst,
        std::int16_t* pLastDC, std::int32_t* pMarker, std::int32_t nAl, const ippiDecodeHuffmanSpec* pDcTable,
        ippiDecodeHuffmanState* pState),
       (pSrc, nSrcSize, pSrcCurrPos, pDst, pLastDC, pMarker, nAl, pDcTable, pState))
KERNEL(ippiDecodeHuffman8x8_DCRefine_JPEG_1u16s_C1,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos, std::int16_t* pDst,
        std::int32_t* pMarker, std::int32_t nAl, ippiDecodeHuffmanState* pState),
       (pSrc, nSrcSize, pSrcCurrPos, pDst, pMarker, nAl, pState))
KERNEL(ippiDecodeHuffman8x8_ACFirst_JPEG_1u16s_C1,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos, std::int16_t* pDst,
        std::int32_t nSs, std::int32_t nSe, std::int32_t nAl, std::int32_t* pMarker,
        const ippiDecodeHuffmanSpec* pAcTable, ippiDecodeHuffmanState* pState),
       (pSrc, nSrcSize, pSrcCurrPos, pDst, nSs, nSe, nAl, pMarker, pAcTable, pState))
KERNEL(ippiDecodeHuffman8x8_ACRefine_JPEG_1u16s_C1,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos, std::int16_t* pDst,
        std::int32_t nSs, std::int32_t nSe, std::int32_t nAl, std::int32_t* pMarker,
        const ippiDecodeHuffmanSpec* pAcTable, ippiDecodeHuffmanState* pState),
       (pSrc, nSrcSize, pSrcCurrPos, pDst, nSs, nSe, nAl, pMarker, pAcTable, pState))
