// Colour models, and planes against interleaved samples.
#pragma once

#include "image/kernels/Colour.h"

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

} // namespace

IppStatus ippiCopy_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize) {
    return CopyPlanes<3>(apSrc, nSrcStep, pDst, nDstStep, roiSize);
}

IppStatus ippiCopy_8u_P4C4R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                            std::int32_t nDstStep, IppiSize roiSize) {
    return CopyPlanes<4>(apSrc, nSrcStep, pDst, nDstStep, roiSize);
}

// From YCbCr to pixels. The products are computed: cheaper for a vector of pixels than a look-up each.
namespace {

constexpr std::int32_t kRedFromCr = 91881;    // 1.402 with 16 fractional bits
constexpr std::int32_t kGreenFromCb = 22554;  // 0.34414
constexpr std::int32_t kGreenFromCr = 46802;  // 0.71414
constexpr std::int32_t kBlueFromCb = 116130;  // 1.772
constexpr std::int32_t kColourHalf = 1 << 15; // rounds

struct Rgb {
    std::uint8_t r, g, b;
};

inline std::uint8_t ClampSample(std::int32_t n) {
    return static_cast<std::uint8_t>(n < 0 ? 0 : n > 255 ? 255 : n);
}

inline Rgb ToRgb(std::int32_t y, std::int32_t cb, std::int32_t cr) {
    cb -= 128;
    cr -= 128;
    return {ClampSample(y + ((kRedFromCr * cr + kColourHalf) >> 16)),
            ClampSample(y + ((-kGreenFromCb * cb - kGreenFromCr * cr + kColourHalf) >> 16)),
            ClampSample(y + ((kBlueFromCb * cb + kColourHalf) >> 16))};
}

} // namespace

IppStatus ippiYCbCrToRGB_JPEG_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize) {
    return InterleavePlanes<3>(apSrc, nSrcStep, pDst, nDstStep, roiSize,
                               [](const int(&s)[3], std::uint8_t* pPixel) {
                                   const Rgb rgb = ToRgb(s[0], s[1], s[2]);
                                   pPixel[0] = rgb.r;
                                   pPixel[1] = rgb.g;
                                   pPixel[2] = rgb.b;
                               });
}

IppStatus ippiYCbCrToBGR_JPEG_8u_P3C3R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize) {
    return InterleavePlanes<3>(apSrc, nSrcStep, pDst, nDstStep, roiSize,
                               [](const int(&s)[3], std::uint8_t* pPixel) {
                                   const Rgb rgb = ToRgb(s[0], s[1], s[2]);
                                   pPixel[0] = rgb.b;
                                   pPixel[1] = rgb.g;
                                   pPixel[2] = rgb.r;
                               });
}

IppStatus ippiYCCKToCMYK_JPEG_8u_P4C4R(const std::uint8_t* const* apSrc, std::int32_t nSrcStep,
                                       std::uint8_t* pDst, std::int32_t nDstStep, IppiSize roiSize) {
    return InterleavePlanes<4>(apSrc, nSrcStep, pDst, nDstStep, roiSize,
                               [](const int(&s)[4], std::uint8_t* pPixel) {
                                   const Rgb rgb = ToRgb(s[0], s[1], s[2]);
                                   pPixel[0] = static_cast<std::uint8_t>(255 - rgb.r);
                                   pPixel[1] = static_cast<std::uint8_t>(255 - rgb.g);
                                   pPixel[2] = static_cast<std::uint8_t>(255 - rgb.b);
                                   pPixel[3] = static_cast<std::uint8_t>(s[3]);
                               });
}

IppStatus ippiRGBToYUV420_8u_C3P3R(const std::uint8_t* pSrc, std::int32_t nSrcStep,
                                   std::uint8_t* const pDst[3], const std::int32_t aDstStep[3],
                                   IppiSize roiSize) {
    if (!pSrc || !pDst || !aDstStep || !pDst[0] || !pDst[1] || !pDst[2])
        return ippStsNullPtrErr;
    if (roiSize.width < 1 || roiSize.height < 1)
        return ippStsSizeErr;
    if (nSrcStep < 1 || aDstStep[0] < 1 || aDstStep[1] < 1 || aDstStep[2] < 1)
        return ippStsStepErr;
    // Y of one pixel, with 16 fractional bits.
    const auto weigh = [](const std::uint8_t* p) { return 19595 * p[0] + 38470 * p[1] + 7471 * p[2]; };
    for (std::int32_t y = 0; y < roiSize.height / 2; ++y) {
        const std::uint8_t* p0 = pSrc + std::ptrdiff_t{2} * y * nSrcStep;
        const std::uint8_t* p1 = p0 + nSrcStep;
        std::uint8_t* const pY0 = pDst[0] + std::ptrdiff_t{2} * y * aDstStep[0];
        std::uint8_t* const pY1 = pY0 + aDstStep[0];
        std::uint8_t* const pU = pDst[1] + std::ptrdiff_t{y} * aDstStep[1];
        std::uint8_t* const pV = pDst[2] + std::ptrdiff_t{y} * aDstStep[2];
        for (std::int32_t x = 0; x < roiSize.width / 2; ++x, p0 += 6, p1 += 6) {
            const std::int32_t aN[4] = {weigh(p0), weigh(p0 + 3), weigh(p1), weigh(p1 + 3)};
            pY0[2 * x] = static_cast<std::uint8_t>(aN[0] >> 16);
            pY0[2 * x + 1] = static_cast<std::uint8_t>(aN[1] >> 16);
            pY1[2 * x] = static_cast<std::uint8_t>(aN[2] >> 16);
            pY1[2 * x + 1] = static_cast<std::uint8_t>(aN[3] >> 16);
            const std::int32_t nRounded = 0x1FFFF - (aN[0] + aN[1] + aN[2] + aN[3]);
            const std::int32_t nSumA = p0[0] + p0[3] + p1[0] + p1[3];
            const std::int32_t nSumC = p0[2] + p0[5] + p1[2] + p1[5];
            const std::int32_t nU = ((((nSumC << 16) + nRounded) >> 16) * 32244 >> 18) + 128;
            const std::int32_t nV = ((((nSumA << 16) + nRounded) >> 16) * 57475 >> 18) + 128;
            pU[x] = static_cast<std::uint8_t>(nU);
            pV[x] = static_cast<std::uint8_t>(std::clamp(nV, 0, 255));
        }
    }
    return ((roiSize.width | roiSize.height) & 1) != 0 ? ippStsOddSize : ippStsNoErr;
}

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
