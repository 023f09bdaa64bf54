KERNEL(ippiRGBToYUV420_8u_C3P3R,
       (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const pDst[3],
        const std::int32_t aDstStep[3], IppiSize roiSize),
       (pSrc, nSrcStep, pDst, aDstStep, roiSize))
