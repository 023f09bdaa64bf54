// The kernels of the fallback engine against their formulas written out plainly, at every level of the
// machine.

#include "image/JpegSamples.h"
#include "image/KernelLevel.h"
#include "image/kernels/Kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstddef>
#include <random>
#include <vector>

namespace {

using samples::Bytes;
using FallbackKernels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, FallbackKernels, EveryKernelLevel(), KernelLevelName);

int Clamp(std::int64_t n) {
    return static_cast<int>(std::clamp<std::int64_t>(n, 0, 255));
}

// One 32-bit number of a sum that may be larger.
std::int64_t Wrap(std::int64_t n) {
    return static_cast<std::int32_t>(static_cast<std::uint32_t>(n));
}

TEST_P(FallbackKernels, ColourOfEveryMcu) {
    using Kernel = decltype(&ippiYCbCr444ToBGRLS_MCU_16s8u_P3C3R);
    struct Row {
        const char* szName;
        Kernel pKernel;
        int nH, nV;
        bool bBlueFirst;
    };
    const Row aRows[] = {{"444 BGR", ippiYCbCr444ToBGRLS_MCU_16s8u_P3C3R, 1, 1, true},
                         {"422 BGR", ippiYCbCr422ToBGRLS_MCU_16s8u_P3C3R, 2, 1, true},
                         {"420 BGR", ippiYCbCr420ToBGRLS_MCU_16s8u_P3C3R, 2, 2, true},
                         {"444 RGB", ippiYCbCr444ToRGBLS_MCU_16s8u_P3C3R, 1, 1, false},
                         {"422 RGB", ippiYCbCr422ToRGBLS_MCU_16s8u_P3C3R, 2, 1, false},
                         {"420 RGB", ippiYCbCr420ToRGBLS_MCU_16s8u_P3C3R, 2, 2, false}};
    for (const Row& row : aRows) {
        SCOPED_TRACE(row.szName);
        const int w = 8 * row.nH, h = 8 * row.nV, nStep = 3 * w + 5;
        for (const int nRange : {128, 400, 32767}) {
            std::minstd_rand random(5);
            std::uniform_int_distribution<int> values(-nRange, nRange);
            std::vector<std::int16_t> y(256), cb(64), cr(64);
            for (auto* pPlane : {&y, &cb, &cr})
                std::ranges::generate(*pPlane, [&] { return static_cast<std::int16_t>(values(random)); });
            Bytes pixels(static_cast<std::size_t>(nStep * h), 0xEE);
            const std::int16_t* const apPlanes[] = {y.data(), cb.data(), cr.data()};
            ASSERT_EQ(row.pKernel(apPlanes, pixels.data(), nStep), 0);
            for (int i = 0; i < h; ++i) {
                for (int j = 0; j < w; ++j) {
                    const auto nBlock = static_cast<std::size_t>(i / 8 * row.nH + j / 8);
                    const int nY = y[nBlock * 64 + static_cast<std::size_t>(i % 8 * 8 + j % 8)];
                    const auto nChroma = static_cast<std::size_t>(i / row.nV * 8 + j / row.nH);
                    const std::int64_t nCb = cb[nChroma], nCr = cr[nChroma];
                    int anWanted[] = {Clamp(nY + (Wrap(91881 * nCr) >> 16) + 128),
                                      Clamp(nY + (Wrap(-22554 * nCb - 46802 * nCr) >> 16) + 128),
                                      Clamp(nY + (Wrap(116130 * nCb) >> 16) + 128)};
                    if (row.bBlueFirst)
                        std::swap(anWanted[0], anWanted[2]);
                    for (int c = 0; c < 3; ++c)
                        ASSERT_EQ(pixels[static_cast<std::size_t>(i * nStep + 3 * j + c)], anWanted[c])
                            << i << ' ' << j;
                }
                for (int j = 3 * w; j < nStep; ++j)
                    ASSERT_EQ(pixels[static_cast<std::size_t>(i * nStep + j)], 0xEE);
            }
            EXPECT_EQ(row.pKernel(apPlanes, pixels.data(), 0), -14);
            EXPECT_EQ(row.pKernel(apPlanes, nullptr, nStep), -8);
            EXPECT_EQ(row.pKernel(nullptr, pixels.data(), nStep), -8);
        }
    }
}

TEST_P(FallbackKernels, Add128ClampsAndKeepsToItsArea) {
    const std::int16_t aSrc[8] = {-32768, -129, -128, -1, 0, 127, 128, 32767};
    std::uint8_t aDst[9];
    std::fill(std::begin(aDst), std::end(aDst), std::uint8_t{0xEE});
    ASSERT_EQ(ippiAdd128_JPEG_16s8u_C1R(aSrc, 8, aDst, 5, {3, 2}), 0);
    const std::uint8_t aWanted[] = {0, 0, 0, 0xEE, 0xEE, 128, 255, 255, 0xEE};
    EXPECT_TRUE(std::equal(std::begin(aDst), std::end(aDst), aWanted));
    EXPECT_EQ(ippiAdd128_JPEG_16s8u_C1R(aSrc, 8, aDst, 5, {0, 2}), -6);
    EXPECT_EQ(ippiAdd128_JPEG_16s8u_C1R(aSrc, 0, aDst, 5, {3, 2}), -14);
    EXPECT_EQ(ippiAdd128_JPEG_16s8u_C1R(aSrc, 8, nullptr, 5, {3, 2}), -8);
}

TEST_P(FallbackKernels, MirrorsOnEveryAxis) {
    for (const int nChannels : {3, 4}) {
        const auto mirror = nChannels == 3 ? ippiMirror_8u_C3R : ippiMirror_8u_C4R;
        const auto inPlace = nChannels == 3 ? ippiMirror_8u_C3IR : ippiMirror_8u_C4IR;
        for (const auto& [w, h] : {std::pair{1, 1}, {1, 4}, {5, 1}, {6, 3}, {7, 4}}) {
            const int nStep = w * nChannels + 2, nDstStep = nStep + 3;
            const Bytes from = samples::Random(static_cast<std::size_t>(nStep * h), 5);
            for (const int nAxis : {0, 1, 2}) {
                Bytes to(static_cast<std::size_t>(nDstStep * h), 0xEE), same = from;
                ASSERT_EQ(mirror(from.data(), nStep, to.data(), nDstStep, {w, h}, nAxis), 0);
                ASSERT_EQ(inPlace(same.data(), nStep, {w, h}, nAxis), 0);
                for (int y = 0; y < h; ++y) {
                    const int nRow = nAxis == 1 ? y : h - 1 - y;
                    for (int x = 0; x < nStep; ++x) {
                        const int nPixel = nAxis == 0 ? x / nChannels : w - 1 - x / nChannels;
                        const bool bPad = x >= w * nChannels;
                        const auto nAt = static_cast<std::size_t>(
                            bPad ? y * nStep + x : nRow * nStep + nPixel * nChannels + x % nChannels);
                        ASSERT_EQ(same[static_cast<std::size_t>(y * nStep + x)], from[nAt]);
                        ASSERT_EQ(to[static_cast<std::size_t>(y * nDstStep + x)], bPad ? 0xEE : from[nAt]);
                    }
                }
            }
            Bytes same = from;
            EXPECT_EQ(mirror(from.data(), nStep, same.data(), nStep, {w, h}, 3), -21);
            EXPECT_EQ(inPlace(same.data(), nStep, {w, h}, -1), -21);
            EXPECT_EQ(inPlace(same.data(), nStep, {w, 0}, 0), -6);
            EXPECT_EQ(inPlace(nullptr, nStep, {w, h}, 0), -8);
        }
    }
}

TEST_P(FallbackKernels, PlanesFromPixels) {
    for (const auto& [w, h] : {std::pair{1, 1}, {2, 2}, {3, 2}, {2, 3}, {16, 8}, {101, 51}}) {
        for (const bool bExtreme : {false, true}) {
            Bytes pixels = samples::Random(static_cast<std::size_t>(3 * w * h), 5);
            for (std::uint8_t& n : pixels)
                n = bExtreme ? static_cast<std::uint8_t>(n < 128 ? 0 : 255) : n;
            const int nYStep = w + 1, nCStep = w / 2 + 2;
            std::vector<Bytes> aPlanes(3, Bytes(static_cast<std::size_t>(nYStep * h), 0xEE)),
                aWanted = aPlanes;
            std::uint8_t* const apPlanes[] = {aPlanes[0].data(), aPlanes[1].data(), aPlanes[2].data()};
            const std::int32_t anSteps[] = {nYStep, nCStep, nCStep};
            ASSERT_EQ(ippiRGBToYUV420_8u_C3P3R(pixels.data(), 3 * w, apPlanes, anSteps, {w, h}),
                      w % 2 != 0 || h % 2 != 0 ? 35 : 0);
            for (int y = 0; y < h / 2; ++y) {
                for (int x = 0; x < w / 2; ++x) {
                    int nS = 0, nSa = 0, nSc = 0;
                    for (const int i : {0, 1, 2, 3}) {
                        const int px = 2 * x + i % 2, py = 2 * y + i / 2;
                        const std::uint8_t* const p = &pixels[static_cast<std::size_t>(3 * (py * w + px))];
                        const int nN = 19595 * p[0] + 38470 * p[1] + 7471 * p[2];
                        aWanted[0][static_cast<std::size_t>(py * nYStep + px)] =
                            static_cast<std::uint8_t>(nN >> 16);
                        nS += nN, nSa += p[0], nSc += p[2];
                    }
                    const auto nAt = static_cast<std::size_t>(y * nCStep + x);
                    const int nU = (((((nSc << 16) - nS + 0x1FFFF) >> 16) * 32244) >> 18) + 128;
                    const int nV = (((((nSa << 16) - nS + 0x1FFFF) >> 16) * 57475) >> 18) + 128;
                    aWanted[1][nAt] = static_cast<std::uint8_t>(nU & 255);
                    aWanted[2][nAt] = static_cast<std::uint8_t>(Clamp(nV));
                }
            }
            for (std::size_t c = 0; c < 3; ++c)
                ASSERT_EQ(aPlanes[c], aWanted[c]) << w << 'x' << h << " plane " << c;
            EXPECT_EQ(ippiRGBToYUV420_8u_C3P3R(pixels.data(), 0, apPlanes, anSteps, {w, h}), -14);
            EXPECT_EQ(ippiRGBToYUV420_8u_C3P3R(pixels.data(), 3 * w, apPlanes, anSteps, {w, 0}), -6);
            EXPECT_EQ(ippiRGBToYUV420_8u_C3P3R(nullptr, 3 * w, apPlanes, anSteps, {w, h}), -8);
        }
    }
}

} // namespace
