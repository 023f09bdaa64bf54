KERNEL(ippiYCbCrToRGB_JPEG_8u_P3C3R,
       (const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (apSrc, nSrcStep, pDst, nDstStep, roiSize))
KERNEL(ippiYCbCrToBGR_JPEG_8u_P3C3R,
       (const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (apSrc, nSrcStep, pDst, nDstStep, roiSize))
KERNEL(ippiYCCKToCMYK_JPEG_8u_P4C4R,
       (const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (apSrc, nSrcStep, pDst, nDstStep, roiSize))
