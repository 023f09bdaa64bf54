// Interleaved pixels: every pair of colours that the decoder converts, from sequential and progressive frames
// alike, and the kernels behind them, against their formulas at every level.

#include "image/Decoding.h"
#include "image/JpegSamples.h"
#include "image/KernelLevel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstdlib>
#include <functional>

namespace {

using namespace samples;

// The conversion with the factors of JFIF in 16 fractional bits, by tables as it is told.
std::array<int, 3> ToRgb(int y, int cb, int cr) {
    const auto whole = [](double dFactor, int n) {
        return static_cast<int>(std::floor((std::floor(dFactor * 65536 + 0.5) * (n - 128) + 32768) / 65536));
    };
    const auto fine = [](double dFactor, int n) {
        return static_cast<int>(std::floor(dFactor * 65536 + 0.5)) * (n - 128);
    };
    const int g = (32768 - fine(0.34414, cb) - fine(0.71414, cr)) >> 16;
    return {std::clamp(y + whole(1.402, cr), 0, 255), std::clamp(y + g, 0, 255),
            std::clamp(y + whole(1.772, cb), 0, 255)};
}

// A channel of it.
int ToRgb(const int* s, int nChannel) {
    return ToRgb(s[0], s[1], s[2])[nChannel];
}

using ColourKernels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, ColourKernels, EveryKernelLevel(), KernelLevelName);

TEST_P(ColourKernels, ExtremesAreClamped) {
    for (const int y : {0, 1, 127, 128, 254, 255}) {
        for (int i = 0; i < 65536; ++i) {
            const std::uint8_t s[3] = {static_cast<std::uint8_t>(y), static_cast<std::uint8_t>(i >> 8),
                                       static_cast<std::uint8_t>(i)};
            const std::uint8_t* apSrc[3] = {s, s + 1, s + 2};
            std::uint8_t rgb[3];
            ippiYCbCrToRGB_JPEG_8u_P3C3R(apSrc, 1, rgb, 3, {1, 1});
            const auto want = ToRgb(s[0], s[1], s[2]);
            ASSERT_TRUE(std::equal(want.begin(), want.end(), rgb)) << y << " " << i;
        }
    }
}

TEST_P(ColourKernels, DoubledPlanesAndCopies) {
    for (int w = 1; w <= 40; ++w) {
        const int h = 1 + w % 5, nIn = (w + 1) / 2 + 2, nRows = (h + 1) / 2;
        const Bytes in = Random(nIn * (nRows + 2), static_cast<unsigned>(w));
        const auto at = [&](int x, int y) { return int{in[(y + 1) * nIn + x + 1]}; };
        Bytes out(w * h, 0xEE), want = out;
        for (int y = 0; y < h; ++y) {
            const int nFar = y % 2 == 0 ? y / 2 - 1 : y / 2 + 1;
            const auto column = [&](int i) { return 3 * at(i, y / 2) + at(i, nFar); };
            for (int x = 0; x < w; ++x)
                want[y * w + x] =
                    static_cast<std::uint8_t>(x % 2 == 0 ? (3 * column(x / 2) + column(x / 2 - 1) + 8) >> 4
                                                         : (3 * column(x / 2) + column(x / 2 + 1) + 7) >> 4);
        }
        ASSERT_EQ(ippiSampleUpH2V2_JPEG_8u_C1R(in.data() + nIn + 1, nIn, {(w + 1) / 2, nRows}, out.data(), w,
                                               {w, h}),
                  0);
        ASSERT_EQ(out, want) << w;

        const Bytes pixels = Random(2 * (w * 4 + 3), static_cast<unsigned>(w));
        Bytes copy(pixels.size());
        for (const int nChannels : {3, 4}) {
            const int nStep = w * nChannels + 3;
            ASSERT_EQ((nChannels == 3 ? ippiCopy_8u_C3R : ippiCopy_8u_C4R)(pixels.data(), nStep, copy.data(),
                                                                           nStep, {w, 2}),
                      0);
            for (int i = 0; i < nStep + w * nChannels; ++i) {
                const auto n = i;
                ASSERT_TRUE(i % nStep >= w * nChannels || copy[n] == pixels[n]);
            }
        }
    }
}

constexpr int kGap = Decode::kGap;

// The Adobe marker is what tells the decoder the colour of a stream.
Bytes WithTransform(Bytes jpeg, int nTransform) {
    jpeg[FindMarker(jpeg, 0xEE) + 15] = static_cast<std::uint8_t>(nTransform);
    return jpeg;
}

struct Pair {
    int nComponents, nTransform;
    JpegColor eFrom, eTo;
    std::function<int(const int*, int)> formula; // of the components' samples, for a channel
};

const Pair kPairs[] = {
    {1, 0, JC_GRAY, JC_RGB, [](const int* s, int) { return s[0]; }},
    {1, 0, JC_GRAY, JC_BGR, [](const int* s, int) { return s[0]; }},
    {3, 0, JC_RGB, JC_RGB, [](const int* s, int c) { return s[c]; }},
    {3, 0, JC_RGB, JC_BGR, [](const int* s, int c) { return s[2 - c]; }},
    {3, 1, JC_YCBCR, JC_RGB, [](const int* s, int c) { return ToRgb(s, c); }},
    {3, 1, JC_YCBCR, JC_BGR, [](const int* s, int c) { return ToRgb(s, 2 - c); }},
    {4, 0, JC_CMYK, JC_CMYK, [](const int* s, int c) { return s[c]; }},
    {4, 2, JC_YCCK, JC_CMYK, [](const int* s, int c) { return c == 3 ? s[3] : 255 - ToRgb(s, c); }},
};

// An unknown colour gives the components as they are; each pair is its formula over those.
TEST_P(ColourKernels, PairsFollowTheirFormula) {
    for (const Pair& pair : kPairs) {
        for (const auto& [nH, nV] : {std::pair{1, 1}, {2, 1}, {2, 2}}) {
            for (const auto& [w, h] : {std::pair{1, 1}, {16, 16}, {23, 37}, {50, 49}}) {
                for (const bool bProgressive : {false, true}) {
                    const Recipe recipe{.nWidth = w,
                                        .nHeight = h,
                                        .nComponents = pair.nComponents,
                                        .nH = pair.nComponents == 1 ? 1 : nH,
                                        .nV = pair.nComponents == 1 ? 1 : nV,
                                        .bProgressive = bProgressive,
                                        .eMarking = Marking::Adobe};
                    const Bytes jpeg = Encode(recipe);
                    const Decode plain(WithTransform(jpeg, 9), JC_UNKNOWN, pair.nComponents);
                    const int nChannels = pair.eTo == JC_CMYK ? 4 : 3;
                    const Decode pixels(WithTransform(jpeg, pair.nTransform), pair.eTo, nChannels);
                    ASSERT_EQ(plain.eData, JPEG_OK) << recipe.Name();
                    ASSERT_EQ(pixels.eData, JPEG_OK) << recipe.Name();
                    ASSERT_EQ(pixels.eColor, pair.eFrom);
                    Bytes want(pixels.pixels.size(), 0x77);
                    for (int i = 0; i < w * h; ++i) {
                        const int x = i % w, y = i / w;
                        int s[4] = {};
                        for (int c = 0; c < pair.nComponents; ++c)
                            s[c] = plain.pixels[y * (w * pair.nComponents + kGap) + x * pair.nComponents + c];
                        for (int c = 0; c < nChannels; ++c)
                            want[y * (w * nChannels + kGap) + x * nChannels + c] =
                                static_cast<std::uint8_t>(pair.formula(s, c));
                    }
                    ASSERT_EQ(pixels.pixels, want) << recipe.Name() << " to " << pair.eTo;
                }
            }
        }
    }
}

// Chroma between MCU rows is the triangular filter's, of the other library's samples, which differ by one.
TEST(ColourPairs, ChromaIsUpsampledAcrossMcuRows) {
    for (const bool bProgressive : {false, true}) {
        for (const int nV : {1, 2}) {
            const Bytes jpeg = Encode({.nWidth = 48,
                                       .nHeight = 80,
                                       .nV = nV,
                                       .bProgressive = bProgressive,
                                       .eMarking = Marking::Adobe});
            const auto raw = DecodeRaw(jpeg);
            const Decode pixels(WithTransform(jpeg, 9), JC_UNKNOWN, 3);
            ASSERT_EQ(pixels.eData, JPEG_OK);
            const int nRows = 80 / nV;
            const auto at = [&](std::size_t c, int x, int y) {
                return raw[c].At(std::clamp(x, 0, 23), std::clamp(y, 0, nRows - 1));
            };
            for (int i = 0; i < 48 * 80 * 3; ++i) {
                const int c = i % 3, x = i / 3 % 48, y = i / 3 / 48;
                const int nGot = pixels.pixels[y * (48 * 3 + kGap) + x * 3 + c];
                if (c == 0) {
                    ASSERT_LE(std::abs(nGot - raw[0].At(x, y)), 1);
                    continue;
                }
                const auto p = c;
                const int nNear = y / nV, nFar = nV == 1 ? nNear : y % 2 == 0 ? nNear - 1 : nNear + 1;
                const int nSide = x % 2 == 0 ? x / 2 - 1 : x / 2 + 1;
                const double dWant = (9.0 * at(p, x / 2, nNear) + 3.0 * at(p, x / 2, nFar) +
                                      3.0 * at(p, nSide, nNear) + at(p, nSide, nFar)) /
                                     16;
                ASSERT_LE(std::abs(nGot - dWant), 1.6) << x << "," << y << " of component " << c;
            }
        }
    }
}

// What no conversion takes: destinations that do not fit, counts that the colours do not have, other pairs.
TEST(ColourPairs, OthersLeaveTheDestinationAlone) {
    struct Row {
        const char* szName;
        int nComponents, nTransform;
        JpegColor eTo;
        int nChannels;
        JpegStatus eWanted;
    };
    const Row aRows[] = {
        {"RGB into four channels", 3, 0, JC_RGB, 4, JPEG_NOT_SUPPORTED},
        {"grey into one channel of RGB", 1, 0, JC_RGB, 1, JPEG_NOT_SUPPORTED},
        {"YCbCr of one component", 1, 1, JC_RGB, 3, JPEG_NOT_SUPPORTED},
        {"YCCK of three components", 3, 2, JC_CMYK, 4, JPEG_NOT_SUPPORTED},
        {"RGB to grey", 3, 0, JC_GRAY, 1, JPEG_OK},
        {"CMYK to RGB", 4, 0, JC_RGB, 3, JPEG_OK},
        {"unknown to RGB", 3, 9, JC_RGB, 3, JPEG_OK},
        {"YCbCr to unknown", 3, 1, JC_UNKNOWN, 3, JPEG_OK},
    };
    for (const Row& row : aRows) {
        for (const bool bProgressive : {false, true}) {
            const Recipe recipe{.nComponents = row.nComponents,
                                .nH = 1,
                                .nV = 1,
                                .bProgressive = bProgressive,
                                .eMarking = Marking::Adobe};
            const Decode pixels(WithTransform(Encode(recipe), row.nTransform), row.eTo, row.nChannels);
            EXPECT_EQ(pixels.eData, row.eWanted) << row.szName;
            EXPECT_EQ(pixels.pixels, Bytes(pixels.pixels.size(), 0x77)) << row.szName;
        }
    }
}

} // namespace
