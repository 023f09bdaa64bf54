KERNEL(ippiDecodeProgressiveRow_JPEG_1u16s,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
        const std::int32_t* pMarker, ippiDecodeHuffmanState* pState, IppBitWindow* pWindow,
        const IppProgressiveRow* pRow, std::int32_t nFirst, std::int32_t nBlocks, std::int32_t* pDone),
       (pSrc, nSrcSize, pSrcCurrPos, pMarker, pState, pWindow, pRow, nFirst, nBlocks, pDone))
KERNEL(ippiDecodeProgressiveMcus_JPEG_1u16s,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
        const std::int32_t* pMarker, ippiDecodeHuffmanState* pState, IppBitWindow* pWindow,
        IppProgressiveMcus* pMcus, std::int32_t nMcus, std::int32_t* pDone),
       (pSrc, nSrcSize, pSrcCurrPos, pMarker, pState, pWindow, pMcus, nMcus, pDone))
KERNEL(ippiInverseMcus_JPEG_16s8u,
       (const IppMcuRow* pRow, const std::uint64_t* pMasks, std::int32_t nFirst, std::int32_t nMcus),
       (pRow, pMasks, nFirst, nMcus))
