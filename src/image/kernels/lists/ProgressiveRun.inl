KERNEL(ippiDecodeProgressiveRow_JPEG_1u16s,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
        const std::int32_t* pMarker, ippiDecodeHuffmanState* pState, const IppProgressiveRow* pRow,
        std::int32_t nFirst, std::int32_t nBlocks, std::int32_t* pDone),
       (pSrc, nSrcSize, pSrcCurrPos, pMarker, pState, pRow, nFirst, nBlocks, pDone))
KERNEL(ippiDecodeProgressiveMcus_JPEG_1u16s,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
        const std::int32_t* pMarker, ippiDecodeHuffmanState* pState, IppProgressiveMcus* pMcus,
        std::int32_t nMcus, std::int32_t* pDone),
       (pSrc, nSrcSize, pSrcCurrPos, pMarker, pState, pMcus, nMcus, pDone))
