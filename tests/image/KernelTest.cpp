// The kernels against their contracts, and every level of the machine against level 0.

#include "image/BlockKernels.h"
#include "image/JpegSamples.h"
#include "image/KernelLevel.h"
#include "image/ReferenceTransform.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <numeric>
#include <random>

namespace {

using namespace samples;

using KernelLevels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, KernelLevels, EveryKernelLevel(), KernelLevelName);

TEST(KernelStart, LevelFollowsTheIdentification) {
    struct Row {
        const char* szName;
        std::uint32_t nEcx, nEdx, nXcr0;
        int nLevel, nSubLevel;
    };
    constexpr std::uint32_t kSse3 = 1u << 0, kSsse3 = 1u << 9, kMovbe = 1u << 22, kSse41 = 1u << 19;
    constexpr std::uint32_t kXsave = 1u << 27, kAvx = 1u << 28,
                            kAll = kSse3 | kSsse3 | kMovbe | kSse41 | kAvx;
    const Row aRows[] = {
        {"nothing", 0, 0, 0, 0, 0},
        {"SSE2 alone", 0, 7u << 23, 0, 0, 0},
        {"SSE3", kSse3, ~0u, 0, 1, 0},
        {"SSSE3", kSse3 | kSsse3, ~0u, 0, 2, 0},
        {"SSSE3 and MOVBE", kSse3 | kSsse3 | kMovbe, ~0u, 0, 2, 1},
        {"MOVBE without SSSE3", kSse3 | kMovbe, ~0u, 0, 1, 0},
        {"SSE4.1", kSse3 | kSsse3 | kSse41, ~0u, 0, 3, 0},
        {"AVX without its state readable", kAll, ~0u, 7, 3, 0},
        {"AVX without its state saved", kAll | kXsave, ~0u, 3, 3, 0},
        {"AVX", kAll | kXsave, ~0u, 7, 4, 0},
    };
    for (const Row& row : aRows) {
        const auto level = ippLevelFromFeatures(ippFeaturesFromIdentification(row.nEcx, row.nEdx, row.nXcr0));
        EXPECT_EQ(level.nLevel, row.nLevel) << row.szName;
        EXPECT_EQ(level.nSubLevel, row.nSubLevel) << row.szName;
    }
    // The names that people choose variants by.
    for (const char* szName : {"", "5", "-1", "44", "4-sse", "avx"})
        EXPECT_EQ(ippSelectVariant(szName), ippStsBadArgument) << szName;
    EXPECT_EQ(g_nKernelLevel, 0);
}

TEST(KernelMemory, BlocksAreAlignedAndWhole) {
    EXPECT_EQ(ippMalloc(0), nullptr);
    EXPECT_EQ(ippMalloc(-5), nullptr);
    EXPECT_EQ(ippMalloc(INT64_MAX), nullptr);
    ippFree(nullptr);
    for (const int n : {1, 31, 32, 33, 4096}) {
        void* const p = ippMalloc(n);
        ASSERT_NE(p, nullptr);
        EXPECT_EQ(reinterpret_cast<std::uintptr_t>(p) % 32, 0u);
        std::memset(p, 0xA5, n);
        ippFree(p);
    }
    EXPECT_EQ(ippAlignPtr(reinterpret_cast<void*>(64), 32), reinterpret_cast<void*>(64));
    EXPECT_EQ(ippAlignPtr(reinterpret_cast<void*>(65), 32), reinterpret_cast<void*>(96));
}

TEST(KernelMemory, CopiesAreWholeAndEndThere) {
    const Bytes from = Random(12, 1);
    Bytes to(24, 0xEE), rows = to;
    EXPECT_EQ(ippsCopy_8u(from.data(), to.data(), 12), 0);
    EXPECT_EQ(Part(to, 0, 12), from);
    EXPECT_EQ(to[12], 0xEE);
    EXPECT_EQ(ippiCopy_8u_C1R(from.data(), 4, rows.data(), 8, {4, 3}), 0);
    for (std::size_t n = 0; n < rows.size(); ++n)
        EXPECT_EQ(rows[n], n % 8 < 4 ? from[n / 8 * 4 + n % 8] : 0xEE) << n;
}

// Fills s with what the kernel makes of c, steps all 1, and r with the exact samples.
void BothInverses(const std::int16_t (&c)[64], std::uint8_t (&s)[64], int (&r)[64]) {
    std::uint16_t t[64];
    std::fill_n(t, 64, std::uint16_t{1});
    ASSERT_EQ(ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(c, s, 8, t), 0);
    ExactBlock f;
    std::copy_n(c, 64, f.begin());
    const auto exact = ReferenceTransform(f, true);
    std::transform(exact.begin(), exact.end(), r,
                   [](double x) { return std::clamp(static_cast<int>(std::floor(x + 0.5)) + 128, 0, 255); });
}

// The classic test: random blocks through an exact forward transform; peak, mean and mean square error.
TEST_P(KernelLevels, InverseTransformIsAccurate) {
    for (const int nRange : {5, 100, 128}) {
        constexpr int kBlocks = 2000;
        std::minstd_rand random(static_cast<unsigned>(nRange));
        double aError[64] = {}, aSquare[64] = {};
        for (int n = 0; n < kBlocks; ++n) {
            ExactBlock exact;
            for (double& x : exact)
                x = static_cast<int>(random() % static_cast<unsigned>(2 * nRange)) - nRange;
            const auto f = ReferenceTransform(exact, false);
            std::int16_t c[64];
            std::transform(f.begin(), f.end(), c,
                           [](double x) { return static_cast<std::int16_t>(std::lround(x)); });
            std::uint8_t s[64];
            int r[64];
            BothInverses(c, s, r);
            for (int i = 0; i < 64; ++i) {
                const int nError = s[i] - r[i];
                ASSERT_LE(std::abs(nError), 1) << "range " << nRange << " block " << n;
                aError[i] += nError / double{kBlocks};
                aSquare[i] += nError * nError / double{kBlocks};
            }
        }
        for (int i = 0; i < 64; ++i) {
            EXPECT_LT(std::abs(aError[i]), 0.015) << "range " << nRange << " at " << i;
            EXPECT_LT(aSquare[i], 0.06) << "range " << nRange << " at " << i;
        }
        EXPECT_LT(std::abs(std::accumulate(std::begin(aError), std::end(aError), 0.0) / 64), 0.0015)
            << nRange;
        EXPECT_LT(std::accumulate(std::begin(aSquare), std::end(aSquare), 0.0) / 64, 0.02) << nRange;
    }
}

// Tables of one code each: a DC symbol of 0 is "0", and so is the end of a block; all else has no code.
// Means of cells of every width, of pictures of one sample and of the largest sums, and nothing behind them.
TEST_P(KernelLevels, CellsHaveTheirMeans) {
    struct Grid {
        std::int32_t nWidth, nHeight, nColumns, nRows;
        int nSample; // -1: random ones
    };
    const Grid aGrids[] = {{320, 240, 80, 60, -1},  {1, 1, 1, 1, -1},     {177, 145, 80, 60, -1},
                           {33, 9, 7, 9, -1},       {256, 3, 256, 1, -1}, {65, 2048, 3, 1, -1},
                           {2048, 515, 1, 2, 255},  {5000, 4, 3, 4, -1},  {31, 5, 31, 5, 255},
                           {4099, 1100, 256, 2, -1}};
    for (const Grid& grid : aGrids) {
        SCOPED_TRACE(testing::Message() << grid.nWidth << "x" << grid.nHeight);
        const std::int32_t nStep = grid.nWidth + 5;
        const auto nBytes = static_cast<std::size_t>(nStep) * static_cast<std::size_t>(grid.nHeight - 1) +
                            static_cast<std::size_t>(grid.nWidth);
        Bytes picture = Random(nBytes, 7);
        if (grid.nSample >= 0)
            std::fill(picture.begin(), picture.end(), static_cast<std::uint8_t>(grid.nSample));
        const auto nCells = static_cast<std::size_t>(grid.nColumns * grid.nRows);
        std::vector<std::uint16_t> means(nCells + 1, 0xEEEE);
        ASSERT_EQ(MeanOfCells(picture.data(), grid.nWidth, grid.nHeight, nStep, grid.nColumns, grid.nRows,
                              means.data()),
                  ImageOk);
        EXPECT_EQ(means[nCells], 0xEEEE);
        for (std::size_t n = 0; n < nCells; ++n) {
            const auto edge = [](std::size_t i, std::int32_t nSize, std::int32_t nCount) {
                return i * static_cast<std::size_t>(nSize) / static_cast<std::size_t>(nCount);
            };
            const std::size_t c = n % static_cast<std::size_t>(grid.nColumns),
                              r = n / static_cast<std::size_t>(grid.nColumns);
            double dSum = 0, dCount = 0;
            for (std::size_t y = edge(r, grid.nHeight, grid.nRows); y < edge(r + 1, grid.nHeight, grid.nRows);
                 ++y) {
                for (std::size_t x = edge(c, grid.nWidth, grid.nColumns);
                     x < edge(c + 1, grid.nWidth, grid.nColumns); ++x, ++dCount)
                    dSum += picture[y * static_cast<std::size_t>(nStep) + x];
            }
            ASSERT_NEAR(means[n], 256 * dSum / dCount, 0.51) << n;
        }
    }
    std::uint16_t nMean = 7;
    const Bytes picture = Random(64, 1);
    for (const Grid& grid : {Grid{8, 8, 9, 1, 0},
                             {8, 8, 1, 9, 0},
                             {8, 8, 0, 1, 0},
                             {8, 8, 1, -1, 0},
                             {0, 8, 1, 1, 0},
                             {INT32_MAX, 8, 1, 1, 0},
                             {257, 1, 257, 1, 0}})
        EXPECT_EQ(MeanOfCells(picture.data(), grid.nWidth, grid.nHeight, INT32_MAX, grid.nColumns, grid.nRows,
                              &nMean),
                  ImageBadGrid);
    EXPECT_EQ(MeanOfCells(picture.data(), 8, 8, 7, 1, 1, &nMean), ImageBadStride);
    EXPECT_EQ(MeanOfCells(nullptr, 8, 8, 8, 1, 1, &nMean), ImageBadGrid);
    EXPECT_EQ(nMean, 7);
}

TEST_P(KernelLevels, IntakeAtMarkersAndEnds) {
    struct Row {
        const char* szName;
        Bytes data;
        int nBlocks; // blocks of two bits that decode
        IppStatus nStatus;
        int nMarker, nPos; // behind the failing block
    };
    const Row aRows[] = {
        {"end of the data", {0x00}, 4, -62, 0, 1},
        {"a marker", {0x00, 0xFF, 0xD9}, 4, -63, 0xD9, 3},
        {"a marker with padding", {0x00, 0xFF, 0xFF, 0xFF, 0xD9, 0x00}, 4, -63, 0xD9, 5},
        {"end inside a marker", {0xFF}, 0, -62, 0, 1},
        {"stuffed bytes hold no code", {0xFF, 0x00, 0xFF, 0x00, 0xFF, 0x00}, 0, -63, 0, 6},
        {"data again behind a stuffed byte", {0x00, 0x00, 0xFF, 0x00, 0x00}, 8, -63, 0, 5},
    };
    HuffmanTable table;
    table.aBits[0] = 1;
    table.values = {0};
    const DecodeTable huffman(table);
    for (const Row& row : aRows) {
        BlockReader reader{row.data};
        IppStatus nStatus = 0;
        int n = -1;
        for (; nStatus == 0; ++n)
            nStatus = reader.Next(huffman, huffman);
        EXPECT_EQ(n, row.nBlocks) << row.szName;
        EXPECT_EQ(nStatus, row.nStatus) << row.szName;
        EXPECT_EQ(reader.nMarker, row.nMarker) << row.szName;
        EXPECT_EQ(reader.nPos, row.nPos) << row.szName;
    }
}

// Runs that leave the block: a little beyond is kept at its last place, farther is an error.
TEST_P(KernelLevels, RunsBeyondTheBlock) {
    HuffmanTable dc, ac;
    dc.aBits[0] = 1;
    dc.values = {0};
    ac.aBits[1] = 3; // 00, 01, 10
    ac.values = {0xF0, 0x71, 0xF1};
    const DecodeTable dcTable(dc), acTable(ac);
    // 0, then three times sixteen zeros, eight places more, and 7 zeros with a 1: place 64.
    BlockReader within{{0b00000000, 0b11011011, 0, 0, 0, 0, 0, 0, 0}};
    EXPECT_EQ(within.Next(dcTable, acTable), 0);
    EXPECT_EQ(within.block[63], 1);
    // The same with 15 zeros at last: place 72.
    BlockReader beyond{{0b00000000, 0b11101010, 0, 0, 0, 0, 0, 0, 0}};
    EXPECT_EQ(beyond.Next(dcTable, acTable), -2);
}

using LevelsAboveZero = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, LevelsAboveZero, KernelLevelsAboveZero(), KernelLevelName);

TEST_P(LevelsAboveZero, TransformGivesTheBytesOfLevelZero) {
    std::minstd_rand random(7);
    for (int n = 0; n < 4000; ++n) {
        std::int16_t c[64];
        std::uint16_t t[64];
        const int nLimit = n % 4 == 0 ? 32767 : n % 4 == 1 ? 2000 : 60;
        for (int i = 0; i < 64; ++i) {
            const int nRandom = static_cast<int>(random() >> 4) % (2 * nLimit + 1) - nLimit;
            const bool bExtreme = nLimit == 32767 && n % 8 == 0;
            c[i] = static_cast<std::int16_t>(bExtreme ? (nRandom < 0 ? -32768 : 32767) : nRandom);
            t[i] = static_cast<std::uint16_t>(1 + (random() >> 4) % (n % 16 < 2 ? 65535 : 255));
        }
        const auto both = [&] {
            std::pair<Bytes, Block> samples{Bytes(64), {}};
            EXPECT_EQ(ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(c, samples.first.data(), 8, t), 0);
            EXPECT_EQ(ippxInverseBlock_16s(c, samples.second.data(), t), 0);
            return samples;
        };
        const auto samples = both();
        ASSERT_EQ(samples, AtLevelZero(both)) << "block " << n;
        // The samples of both kernels are the same, but for the shift and the clamp.
        for (std::size_t i = 0; i < 64; ++i)
            ASSERT_EQ(samples.first[i], std::clamp(samples.second[i] + 128, 0, 255)) << "block " << n;
    }
}

// Kernels of the fallback engine against their formulas written out plainly.
using FallbackKernels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, FallbackKernels, EveryKernelLevel(), KernelLevelName);

TEST_P(FallbackKernels, MirrorsOnEveryAxis) {
    for (const int nChannels : {3, 4}) {
        const auto mirror = nChannels == 3 ? ippiMirror_8u_C3R : ippiMirror_8u_C4R;
        const auto inPlace = nChannels == 3 ? ippiMirror_8u_C3IR : ippiMirror_8u_C4IR;
        for (const auto& [w, h] : {std::pair{1, 1}, {1, 4}, {5, 1}, {6, 3}, {7, 4}}) {
            const int nStep = w * nChannels + 2, nDstStep = nStep + 3;
            const Bytes from = Random(nStep * h, 5);
            for (const int nAxis : {0, 1, 2}) {
                Bytes to(nDstStep * h, 0xEE), same = from;
                ASSERT_EQ(mirror(from.data(), nStep, to.data(), nDstStep, {w, h}, nAxis), 0);
                ASSERT_EQ(inPlace(same.data(), nStep, {w, h}, nAxis), 0);
                for (int y = 0; y < h; ++y) {
                    const int nRow = nAxis == 1 ? y : h - 1 - y;
                    for (int x = 0; x < nStep; ++x) {
                        const int nPixel = nAxis == 0 ? x / nChannels : w - 1 - x / nChannels;
                        const bool bPad = x >= w * nChannels;
                        const auto nAt =
                            bPad ? y * nStep + x : nRow * nStep + nPixel * nChannels + x % nChannels;
                        ASSERT_EQ(same[y * nStep + x], from[nAt]);
                        ASSERT_EQ(to[y * nDstStep + x], bPad ? 0xEE : from[nAt]);
                    }
                }
            }
            Bytes same = from;
            EXPECT_EQ(mirror(from.data(), nStep, same.data(), nStep, {w, h}, 3), -21);
            EXPECT_EQ(inPlace(same.data(), nStep, {w, h}, -1), -21);
        }
    }
}

TEST_P(FallbackKernels, PlanesFromPixels) {
    for (const auto& [w, h] : {std::pair{1, 1}, {2, 2}, {3, 2}, {2, 3}, {16, 8}, {101, 51}}) {
        for (const bool bExtreme : {false, true}) {
            Bytes pixels = Random(3 * w * h, 5);
            for (std::uint8_t& n : pixels)
                n = bExtreme ? static_cast<std::uint8_t>(n < 128 ? 0 : 255) : n;
            const int nYStep = w + 1, nCStep = w / 2 + 2;
            std::vector<Bytes> aPlanes(3, Bytes(nYStep * h, 0xEE)), aWanted = aPlanes;
            std::uint8_t* const apPlanes[] = {aPlanes[0].data(), aPlanes[1].data(), aPlanes[2].data()};
            const std::int32_t anSteps[] = {nYStep, nCStep, nCStep};
            ASSERT_EQ(ippiRGBToYUV420_8u_C3P3R(pixels.data(), 3 * w, apPlanes, anSteps, {w, h}),
                      w % 2 != 0 || h % 2 != 0 ? 35 : 0);
            for (int y = 0; y < h / 2; ++y) {
                for (int x = 0; x < w / 2; ++x) {
                    int nS = 0, nSa = 0, nSc = 0;
                    for (const int i : {0, 1, 2, 3}) {
                        const int px = 2 * x + i % 2, py = 2 * y + i / 2;
                        const std::uint8_t* const p = &pixels[3 * (py * w + px)];
                        const int nN = 19595 * p[0] + 38470 * p[1] + 7471 * p[2];
                        aWanted[0][py * nYStep + px] = static_cast<std::uint8_t>(nN >> 16);
                        nS += nN, nSa += p[0], nSc += p[2];
                    }
                    const auto nAt = y * nCStep + x;
                    const int nU = (((((nSc << 16) - nS + 0x1FFFF) >> 16) * 32244) >> 18) + 128;
                    const int nV = (((((nSa << 16) - nS + 0x1FFFF) >> 16) * 57475) >> 18) + 128;
                    aWanted[1][nAt] = static_cast<std::uint8_t>(nU & 255);
                    aWanted[2][nAt] = static_cast<std::uint8_t>(std::clamp(nV, 0, 255));
                }
            }
            for (std::size_t c = 0; c < 3; ++c)
                ASSERT_EQ(aPlanes[c], aWanted[c]) << w << 'x' << h << " plane " << c;
        }
    }
}

} // namespace
