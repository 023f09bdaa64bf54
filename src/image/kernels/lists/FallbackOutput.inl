#define MCU_COLOUR_KERNEL(name)                                                                              \
    KERNEL(name, (const std::int16_t* const pYCbCr[3], std::uint8_t* pDst, std::int32_t nDstStep),           \
           (pYCbCr, pDst, nDstStep))
MCU_COLOUR_KERNEL(ippiYCbCr444ToBGRLS_MCU_16s8u_P3C3R)
MCU_COLOUR_KERNEL(ippiYCbCr422ToBGRLS_MCU_16s8u_P3C3R)
MCU_COLOUR_KERNEL(ippiYCbCr420ToBGRLS_MCU_16s8u_P3C3R)
MCU_COLOUR_KERNEL(ippiYCbCr444ToRGBLS_MCU_16s8u_P3C3R)
MCU_COLOUR_KERNEL(ippiYCbCr422ToRGBLS_MCU_16s8u_P3C3R)
MCU_COLOUR_KERNEL(ippiYCbCr420ToRGBLS_MCU_16s8u_P3C3R)
#undef MCU_COLOUR_KERNEL

KERNEL(ippiAdd128_JPEG_16s8u_C1R,
       (const std::int16_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,
        IppiSize roiSize),
       (pSrc, nSrcStep, pDst, nDstStep, roiSize))

#define MIRROR_KERNEL(name)                                                                                  \
    KERNEL(name,                                                                                             \
           (const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst, std::int32_t nDstStep,      \
            IppiSize roiSize, std::int32_t nAxis),                                                           \
           (pSrc, nSrcStep, pDst, nDstStep, roiSize, nAxis))
MIRROR_KERNEL(ippiMirror_8u_C3R)
MIRROR_KERNEL(ippiMirror_8u_C4R)
#undef MIRROR_KERNEL
#define MIRROR_KERNEL(name)                                                                                  \
    KERNEL(name, (std::uint8_t * pSrcDst, std::int32_t nStep, IppiSize roiSize, std::int32_t nAxis),         \
           (pSrcDst, nStep, roiSize, nAxis))
MIRROR_KERNEL(ippiMirror_8u_C3IR)
MIRROR_KERNEL(ippiMirror_8u_C4IR)
#undef MIRROR_KERNEL
