// Kernels of the encoder.

KERNEL(ippiQuantFwdRawTableInit_JPEG_8u, (std::uint8_t * pRawTable, std::int32_t nQuality),
       (pRawTable, nQuality))
KERNEL(ippiQuantFwdTableInit_JPEG_8u16u, (const std::uint8_t* pRawTable, std::uint16_t* pTable),
       (pRawTable, pTable))
KERNEL(ippiEncodeHuffmanSpecInit_JPEG_8u,
       (const std::uint8_t* pBits, const std::uint8_t* pValues, ippiEncodeHuffmanSpec** ppSpec),
       (pBits, pValues, ppSpec))
KERNEL(ippiEncodeHuffmanSpecFree_JPEG_8u, (ippiEncodeHuffmanSpec * pSpec), (pSpec))
KERNEL(ippiEncodeHuffmanRawTableInit_JPEG_8u,
       (const std::uint32_t* pStatistics, std::uint8_t* pBits, std::uint8_t* pValues),
       (pStatistics, pBits, pValues))

KERNEL(ippiEncodeHuffmanStateInitAlloc_JPEG_8u, (ippiEncodeHuffmanState * *ppState), (ppState))
KERNEL(ippiEncodeHuffmanStateInit_JPEG_8u, (ippiEncodeHuffmanState * pState), (pState))
KERNEL(ippiEncodeHuffmanStateFree_JPEG_8u, (ippiEncodeHuffmanState * pState), (pState))
KERNEL(ippiEncodeHuffman8x8_JPEG_16s1u_C1,
       (const std::int16_t* pSrc, std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t* pDstCurrPos,
        std::int16_t* pLastDC, const ippiEncodeHuffmanSpec* pDcTable, const ippiEncodeHuffmanSpec* pAcTable,
        ippiEncodeHuffmanState* pState, std::int32_t bFlush),
       (pSrc, pDst, nDstSize, pDstCurrPos, pLastDC, pDcTable, pAcTable, pState, bFlush))
KERNEL(ippiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1,
       (const std::int16_t* pSrc, std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t* pDstCurrPos,
        std::int16_t* pLastDC, std::int32_t nAl, const ippiEncodeHuffmanSpec* pDcTable,
        ippiEncodeHuffmanState* pState, std::int32_t bFlush),
       (pSrc, pDst, nDstSize, pDstCurrPos, pLastDC, nAl, pDcTable, pState, bFlush))
KERNEL(ippiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1,
       (const std::int16_t* pSrc, std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t* pDstCurrPos,
        std::int32_t nAl, ippiEncodeHuffmanState* pState, std::int32_t bFlush),
       (pSrc, pDst, nDstSize, pDstCurrPos, nAl, pState, bFlush))
KERNEL(ippiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1,
       (const std::int16_t* pSrc, std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t* pDstCurrPos,
        std::int32_t nSs, std::int32_t nSe, std::int32_t nAl, const ippiEncodeHuffmanSpec* pAcTable,
        ippiEncodeHuffmanState* pState, std::int32_t bFlush),
       (pSrc, pDst, nDstSize, pDstCurrPos, nSs, nSe, nAl, pAcTable, pState, bFlush))
KERNEL(ippiEncodeHuffman8x8_ACRefine_JPEG_16s1u_C1,
       (const std::int16_t* pSrc, std::uint8_t* pDst, std::int32_t nDstSize, std::int32_t* pDstCurrPos,
        std::int32_t nSs, std::int32_t nSe, std::int32_t nAl, const ippiEncodeHuffmanSpec* pAcTable,
        ippiEncodeHuffmanState* pState, std::int32_t bFlush),
       (pSrc, pDst, nDstSize, pDstCurrPos, nSs, nSe, nAl, pAcTable, pState, bFlush))
KERNEL(ippiGetHuffmanStatistics8x8_DCFirst_JPEG_16s_C1,
       (const std::int16_t* pSrc, std::uint32_t* pStatistics, std::int16_t* pLastDC, std::int32_t nAl),
       (pSrc, pStatistics, pLastDC, nAl))
KERNEL(ippiGetHuffmanStatistics8x8_ACFirst_JPEG_16s_C1,
       (const std::int16_t* pSrc, std::uint32_t* pStatistics, std::int32_t nSs, std::int32_t nSe,
        std::int32_t nAl, ippiEncodeHuffmanState* pState, std::int32_t bFlush),
       (pSrc, pStatistics, nSs, nSe, nAl, pState, bFlush))
KERNEL(ippiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1,
       (const std::int16_t* pSrc, std::uint32_t* pStatistics, std::int32_t nSs, std::int32_t nSe,
        std::int32_t nAl, ippiEncodeHuffmanState* pState, std::int32_t bFlush),
       (pSrc, pStatistics, nSs, nSe, nAl, pState, bFlush))

KERNEL(ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::int16_t* pDst, const std::uint16_t* pTable),
       (pSrc, nSrcStep, pDst, pTable))
KERNEL(ippiTransformMcus_JPEG_8u16s,
       (ippiScanComponent * pComponents, std::int32_t nComponents, std::int32_t nMcus, std::int16_t* pDst),
       (pComponents, nComponents, nMcus, pDst))
KERNEL(ippiEncodeMcus_JPEG_8u1u,
       (ippiScanComponent * pComponents, std::int32_t nComponents, std::int32_t nMcus, std::uint8_t* pDst,
        std::int32_t nDstSize, std::int32_t* pDstCurrPos, ippiEncodeHuffmanState* pState),
       (pComponents, nComponents, nMcus, pDst, nDstSize, pDstCurrPos, pState))

KERNEL(ippiRGBToY_JPEG_8u_C3C1R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, pDst, nDstStep, roiSize))
KERNEL(ippiRGBToYCbCr_JPEG_8u_C3P3R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, apDst, nDstStep, roiSize))
KERNEL(ippiBGRToYCbCr_JPEG_8u_C3P3R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, apDst, nDstStep, roiSize))
KERNEL(ippiCMYKToYCCK_JPEG_8u_C4P4R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, apDst, nDstStep, roiSize))

KERNEL(ippiSampleDownH2V1_JPEG_8u_C1R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi, std::uint8_t* pDst,
        std::int32_t nDstStep, IppiSize dstRoi),
       (pSrc, nSrcStep, srcRoi, pDst, nDstStep, dstRoi))
KERNEL(ippiCopy_8u_C3P3R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, apDst, nDstStep, roiSize))
KERNEL(ippiCopy_8u_C4P4R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, apDst, nDstStep, roiSize))
