// Interleaved samples into planes.

namespace KERNEL_TARGET {
namespace {

template <int nChannels>
IppStatus SplitPlanes(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst,
                      std::int32_t nDstStep, IppiSize roiSize) {
    if (!pSrc || !apDst || std::find(apDst, apDst + nChannels, nullptr) != apDst + nChannels)
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || nDstStep < 1)
        return ippStsStepErr;
    std::ptrdiff_t nWidth = roiSize.width;
    std::ptrdiff_t nHeight = roiSize.height;
    if (nSrcStep == nChannels * nWidth && nDstStep == nWidth) {
        nWidth *= nHeight;
        nHeight = 1;
    }
    for (std::ptrdiff_t y = 0; y < nHeight; ++y, pSrc += nSrcStep) {
        const std::uint8_t* pPixel = pSrc;
        for (std::ptrdiff_t i = y * nDstStep; i < y * nDstStep + nWidth; ++i, pPixel += nChannels) {
            for (int c = 0; c < nChannels; ++c)
                apDst[c][i] = pPixel[c];
        }
    }
    return ippStsNoErr;
}

} // namespace

IppStatus ippiCopy_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst,
                            std::int32_t nDstStep, IppiSize roiSize) {
    return SplitPlanes<3>(pSrc, nSrcStep, apDst, nDstStep, roiSize);
}

IppStatus ippiCopy_8u_C4P4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst,
                            std::int32_t nDstStep, IppiSize roiSize) {
    return SplitPlanes<4>(pSrc, nSrcStep, apDst, nDstStep, roiSize);
}

} // namespace KERNEL_TARGET
