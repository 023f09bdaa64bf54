KERNEL(ippiCopy_8u_C3R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, pDst, nDstStep, roiSize))
KERNEL(ippiCopy_8u_C4R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, pDst, nDstStep, roiSize))
KERNEL(ippiCopy_8u_P3C3R,
       (const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (apSrc, nSrcStep, pDst, nDstStep, roiSize))
KERNEL(ippiCopy_8u_P4C4R,
       (const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (apSrc, nSrcStep, pDst, nDstStep, roiSize))
KERNEL(ippiSampleUpH2V2_JPEG_8u_C1R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi, std::uint8_t* pDst,
        std::int32_t nDstStep, IppiSize dstRoi),
       (pSrc, nSrcStep, srcRoi, pDst, nDstStep, dstRoi))
