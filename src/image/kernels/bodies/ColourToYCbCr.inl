// Interleaved pixels to luma and chroma planes.

namespace KERNEL_TARGET {
namespace {

// Where red, green and blue stand in a pixel and whether they stand as their complements.
template <int nRed, int nBlue, bool bComplement>
struct PixelLayout {
    static constexpr std::int32_t Sample(std::uint8_t n) { return bComplement ? 255 - n : n; }
    static std::int32_t Red(const std::uint8_t* p) { return Sample(p[nRed]); }
    static std::int32_t Green(const std::uint8_t* p) { return Sample(p[1]); }
    static std::int32_t Blue(const std::uint8_t* p) { return Sample(p[nBlue]); }
};

inline std::uint8_t Luma(std::int32_t r, std::int32_t g, std::int32_t b) {
    return static_cast<std::uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
}

// The rounding term of both chroma samples: 128 and a half, less one so that 255.5 is never reached.
constexpr std::int32_t kChromaTerm = 8421375;

inline std::uint8_t BlueChroma(std::int32_t r, std::int32_t g, std::int32_t b) {
    return static_cast<std::uint8_t>((-11059 * r - 21709 * g + 32768 * b + kChromaTerm) >> 16);
}

inline std::uint8_t RedChroma(std::int32_t r, std::int32_t g, std::int32_t b) {
    return static_cast<std::uint8_t>((32768 * r - 27439 * g - 5329 * b + kChromaTerm) >> 16);
}

IppStatus CheckToYCbCr(bool bPointers, std::int32_t nSrcStep, std::int32_t nDstStep, IppiSize roiSize) {
    if (!bPointers)
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    return nSrcStep < 1 || nDstStep < 1 ? ippStsStepErr : ippStsNoErr;
}

// Pixels that are converted together, out of arrays and into arrays that nothing else points at, so that a
// compiler takes vectors for them.
constexpr std::ptrdiff_t kTogether = 32;

template <class Layout, int nChannels>
IppStatus ToYCbCr(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* const* apDst,
                  std::int32_t nDstStep, IppiSize roiSize) {
    const bool bPointers = pSrc && apDst && apDst[0] && apDst[1] && apDst[2] && (nChannels < 4 || apDst[3]);
    if (const IppStatus nStatus = CheckToYCbCr(bPointers, nSrcStep, nDstStep, roiSize))
        return nStatus;
    std::int32_t r[kTogether] = {}, g[kTogether] = {}, b[kTogether] = {};
    std::uint8_t aPlanes[4][kTogether];
    for (std::int32_t y = 0; y < roiSize.height; ++y, pSrc += nSrcStep) {
        const std::uint8_t* pPixel = pSrc;
        for (std::ptrdiff_t x = 0; x < roiSize.width; x += kTogether) {
            const std::ptrdiff_t nPixels = std::min<std::ptrdiff_t>(kTogether, roiSize.width - x);
            for (std::ptrdiff_t i = 0; i < nPixels; ++i, pPixel += nChannels) {
                r[i] = Layout::Red(pPixel);
                g[i] = Layout::Green(pPixel);
                b[i] = Layout::Blue(pPixel);
                if constexpr (nChannels == 4)
                    aPlanes[3][i] = pPixel[3];
            }
            for (std::ptrdiff_t i = 0; i < kTogether; ++i) {
                aPlanes[0][i] = Luma(r[i], g[i], b[i]);
                aPlanes[1][i] = BlueChroma(r[i], g[i], b[i]);
                aPlanes[2][i] = RedChroma(r[i], g[i], b[i]);
            }
            for (int c = 0; c < nChannels; ++c)
                std::memcpy(apDst[c] + std::ptrdiff_t{y} * nDstStep + x, aPlanes[c],
                            static_cast<std::size_t>(nPixels));
        }
    }
    return ippStsNoErr;
}

} // namespace

IppStatus ippiRGBToY_JPEG_8u_C3C1R(const std::uint8_t* pSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                                   std::int32_t nDstStep, IppiSize roiSize) {
    if (const IppStatus nStatus = CheckToYCbCr(pSrc && pDst, nSrcStep, nDstStep, roiSize))
        return nStatus;
    for (std::int32_t y = 0; y < roiSize.height; ++y, pSrc += nSrcStep, pDst += nDstStep) {
        for (std::ptrdiff_t x = 0; x < roiSize.width; ++x)
            pDst[x] = Luma(pSrc[3 * x], pSrc[3 * x + 1], pSrc[3 * x + 2]);
    }
    return ippStsNoErr;
}

IppStatus ippiRGBToYCbCr_JPEG_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize) {
    return ToYCbCr<PixelLayout<0, 2, false>, 3>(pSrc, nSrcStep, apDst, nDstStep, roiSize);
}

IppStatus ippiBGRToYCbCr_JPEG_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize) {
    return ToYCbCr<PixelLayout<2, 0, false>, 3>(pSrc, nSrcStep, apDst, nDstStep, roiSize);
}

IppStatus ippiCMYKToYCCK_JPEG_8u_C4P4R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                       std::uint8_t* const* apDst, std::int32_t nDstStep, IppiSize roiSize) {
    return ToYCbCr<PixelLayout<0, 2, true>, 4>(pSrc, nSrcStep, apDst, nDstStep, roiSize);
}

} // namespace KERNEL_TARGET
