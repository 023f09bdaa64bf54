// Bytes and planes: the C++ library's own copies are as fast as the processor at hand allows.

namespace KERNEL_TARGET {

IppStatus ippsCopy_8u(const std::uint8_t* pSrc, std::uint8_t* pDst, std::int32_t nLength) {
    if (!pSrc || !pDst)
        return ippStsNullPtrErr;
    if (nLength < 1)
        return ippStsSizeErr;
    std::memcpy(pDst, pSrc, static_cast<std::size_t>(nLength));
    return ippStsNoErr;
}

IppStatus ippsZero_8u(std::uint8_t* pDst, std::int32_t nLength) {
    if (!pDst)
        return ippStsNullPtrErr;
    if (nLength < 1)
        return ippStsSizeErr;
    std::memset(pDst, 0, static_cast<std::size_t>(nLength));
    return ippStsNoErr;
}

IppStatus ippiCopy_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize) {
    if (!pSrc || !pDst)
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || nDstStep < 1)
        return ippStsStepErr;
    const auto nWidth = static_cast<std::size_t>(roiSize.width);
    if (nSrcStep == roiSize.width && nDstStep == roiSize.width) {
        std::memcpy(pDst, pSrc, nWidth * static_cast<std::size_t>(roiSize.height));
        return ippStsNoErr;
    }
    for (std::int32_t y = 0; y < roiSize.height; ++y, pSrc += nSrcStep, pDst += nDstStep)
        std::memcpy(pDst, pSrc, nWidth);
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
