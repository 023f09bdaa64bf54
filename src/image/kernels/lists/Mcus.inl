// The kernel that decodes whole MCUs.

KERNEL(ippiDecodeMcus_JPEG_1u8u,
       (const std::uint8_t* pSrc, std::int32_t nSrcSize, std::int32_t* pSrcCurrPos,
        const std::int32_t* pMarker, ippiDecodeHuffmanState* pState, IppBitWindow* pWindow, IppMcuRow* pRow,
        std::int32_t nFirst, std::int32_t nMcus, std::int32_t* pDone),
       (pSrc, nSrcSize, pSrcCurrPos, pMarker, pState, pWindow, pRow, nFirst, nMcus, pDone))
