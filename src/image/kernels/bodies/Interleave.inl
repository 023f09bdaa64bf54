// Planes into interleaved samples, with or without a conversion on the way.

namespace KERNEL_TARGET {
namespace {

// Writes every pixel with write(samples of the planes, pixel), after the checks that all such kernels have.
template <int nChannels, typename Write>
IppStatus InterleavePlanes(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                           std::int32_t nDstStep, IppiSize roiSize, Write write) {
    if (!pDst || !apSrc || std::find(apSrc, apSrc + nChannels, nullptr) != apSrc + nChannels)
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || nDstStep < 1)
        return ippStsStepErr;
    std::ptrdiff_t nWidth = roiSize.width;
    std::ptrdiff_t nHeight = roiSize.height;
    if (nSrcStep == nWidth && nDstStep == nChannels * nWidth) {
        nWidth *= nHeight;
        nHeight = 1;
    }
    for (std::ptrdiff_t y = 0; y < nHeight; ++y, pDst += nDstStep) {
        const std::uint8_t* apRow[nChannels];
        for (int c = 0; c < nChannels; ++c)
            apRow[c] = apSrc[c] + y * nSrcStep;
        std::uint8_t* pPixel = pDst;
        for (std::ptrdiff_t x = 0; x < nWidth; ++x, pPixel += nChannels) {
            int aSamples[nChannels];
            for (int c = 0; c < nChannels; ++c)
                aSamples[c] = apRow[c][x];
            write(aSamples, pPixel);
        }
    }
    return ippStsNoErr;
}

template <int nChannels>
IppStatus CopyPlanes(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                     std::int32_t nDstStep, IppiSize roiSize) {
    return InterleavePlanes<nChannels>(apSrc, nSrcStep, pDst, nDstStep, roiSize,
                                       [](const int(&aSamples)[nChannels], std::uint8_t* pPixel) {
                                           for (int c = 0; c < nChannels; ++c)
                                               pPixel[c] = static_cast<std::uint8_t>(aSamples[c]);
                                       });
}

// A picture of interleaved samples is a plane of that many times the width.
template <int nChannels>
IppStatus CopyPixels(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                     std::int32_t nDstStep, IppiSize roiSize) {
    if (roiSize.width > INT32_MAX / nChannels)
        return ippStsSizeErr;
    return ippiCopy_8u_C1R(pSrc, nSrcStep, pDst, nDstStep, {roiSize.width * nChannels, roiSize.height});
}

} // namespace

IppStatus ippiCopy_8u_C3R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize) {
    return CopyPixels<3>(pSrc, nSrcStep, pDst, nDstStep, roiSize);
}

IppStatus ippiCopy_8u_C4R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                          std::int32_t nDstStep, IppiSize roiSize) {
    return CopyPixels<4>(pSrc, nSrcStep, pDst, nDstStep, roiSize);
}

IppStatus ippiCopy_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize) {
    return CopyPlanes<3>(apSrc, nSrcStep, pDst, nDstStep, roiSize);
}

IppStatus ippiCopy_8u_P4C4R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize) {
    return CopyPlanes<4>(apSrc, nSrcStep, pDst, nDstStep, roiSize);
}

// near is the source row that an output row lies in, far the next one on its side.
IppStatus ippiSampleUpH2V2_JPEG_8u_C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, IppiSize srcRoi,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize dstRoi) {
    if (const IppStatus nStatus = CheckSampling(pSrc, nSrcStep, srcRoi, 1, pDst, nDstStep, dstRoi))
        return nStatus;
    for (std::int32_t y = 0; y < dstRoi.height; ++y, pDst += nDstStep) {
        const std::uint8_t* const pNear = pSrc + std::ptrdiff_t{y >> 1} * nSrcStep;
        const std::uint8_t* const pFar = y % 2 == 0 ? pNear - nSrcStep : pNear + nSrcStep;
        const auto column = [=](std::int32_t i) { return 3 * pNear[i] + pFar[i]; };
        for (std::int32_t i = 0; 2 * i < dstRoi.width; ++i) {
            pDst[2 * i] = static_cast<std::uint8_t>((3 * column(i) + column(i - 1) + 8) >> 4);
            if (2 * i + 1 < dstRoi.width)
                pDst[2 * i + 1] = static_cast<std::uint8_t>((3 * column(i) + column(i + 1) + 7) >> 4);
        }
    }
    return ippStsNoErr;
}

} // namespace KERNEL_TARGET
