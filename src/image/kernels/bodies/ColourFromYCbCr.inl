// From YCbCr to pixels. The products are computed: cheaper for a vector of pixels than a look-up each.

namespace KERNEL_TARGET {
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

} // namespace KERNEL_TARGET
