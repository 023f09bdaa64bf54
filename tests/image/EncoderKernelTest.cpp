// The encoder's kernels against their contracts, at every level of the machine.

#include "image/JpegSamples.h"
#include "image/KernelLevel.h"
#include "image/ReferenceTransform.h"
#include "image/kernels/Tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <numeric>
#include <random>

namespace {

using samples::Block;
using samples::Bytes;
using Samples = std::array<std::uint8_t, 64>;

using Random = std::mt19937;

using EncoderKernels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, EncoderKernels, EveryKernelLevel(), KernelLevelName);

using SpecOwner = IppTablePtr<ippiEncodeHuffmanSpec>;

IppStatus MakeSpec(const std::uint8_t* pBits, const std::uint8_t* pValues, SpecOwner& owner) {
    ippiEncodeHuffmanSpec* pSpec = nullptr;
    const IppStatus nStatus = ippiEncodeHuffmanSpecInit_JPEG_8u(pBits, pValues, &pSpec);
    owner.reset(pSpec);
    return nStatus;
}

// Lengths that the counts call for: complete but for the code of all ones, shorter for what is more frequent.
TEST_P(EncoderKernels, TablesFromCounts) {
    Random random(7);
    std::uint8_t aBits[16], aValues[256];
    for (int nCase = 0; nCase < 60; ++nCase) {
        std::uint32_t aCounts[256] = {};
        // From one symbol alone to all of them, and from flat to so steep that lengths must be limited.
        const auto nSymbols = nCase == 0 ? 1u : 1u + random() % 256;
        for (unsigned i = 0; i < nSymbols; ++i)
            aCounts[random() % 256] += static_cast<std::uint32_t>(
                1 + (random() >> (8 + static_cast<unsigned>(nCase) % 20 + random() % 4)));
        ASSERT_EQ(ippiEncodeHuffmanRawTableInit_JPEG_8u(aCounts, aBits, aValues), 0);
        SpecOwner huffman;
        ASSERT_EQ(MakeSpec(aBits, aValues, huffman), 0);
        double sum = 0;
        for (int i = 0; i < 256; ++i) {
            const std::uint32_t nLength = huffman->aCode[i] >> 16;
            ASSERT_EQ(nLength != 0, aCounts[i] != 0) << i;
            if (nLength == 0)
                continue;
            sum += std::ldexp(1.0, -static_cast<int>(nLength));
            EXPECT_NE(huffman->aCode[i] & 0xFFFF, (1u << nLength) - 1) << "the code of all ones";
            // Where lengths had to be limited, symbols of one length before share several afterwards.
            for (int j = 0; j < 256 && aBits[15] == 0; ++j)
                ASSERT_FALSE(aCounts[j] > aCounts[i] && huffman->aCode[j] >> 16 > nLength) << i << " " << j;
        }
        EXPECT_LT(sum, 1.0);
    }
    // Numbers like Fibonacci's make each code one bit longer than the next: 16 bits at most come out.
    std::uint32_t aSteep[256] = {1, 2};
    for (int i = 2; i < 30; ++i)
        aSteep[i] = aSteep[i - 1] + aSteep[i - 2] + 1;
    ASSERT_EQ(ippiEncodeHuffmanRawTableInit_JPEG_8u(aSteep, aBits, aValues), 0);
    EXPECT_EQ(std::accumulate(aBits, aBits + 16, 0), 30);
    EXPECT_EQ(aValues[0], 29);
    for (int i = 30; i < 42; ++i)
        aSteep[i] = aSteep[i - 1] + aSteep[i - 2] + 1;
    EXPECT_EQ(ippiEncodeHuffmanRawTableInit_JPEG_8u(aSteep, aBits, aValues), -64);
}

// Samples between two limits, and the extremes that make single coefficients as large as they get.
Samples RandomSamples(Random& random, int nKind) {
    Samples samples;
    const int aRanges[][2] = {{0, 255}, {123, 132}, {0, 1}, {100, 250}};
    const auto& range = aRanges[nKind % 4];
    samples::ExactBlock wave{};
    wave[random() % 64] = 1;
    wave = samples::ReferenceTransform(wave, true);
    std::transform(wave.begin(), wave.end(), samples.begin(), [&](double x) {
        const int n = range[0] + static_cast<int>(random() % static_cast<unsigned>(range[1] - range[0] + 1));
        return static_cast<std::uint8_t>(nKind % 5 != 4 ? n : x >= 0 ? 255 : 0);
    });
    return samples;
}

samples::ExactBlock ExactCoefficients(const Samples& samples) {
    samples::ExactBlock shifted;
    std::transform(samples.begin(), samples.end(), shifted.begin(), [](int n) { return n - 128.0; });
    return samples::ReferenceTransform(shifted, false);
}

TEST_P(EncoderKernels, ForwardTransformIsAccurate) {
    std::uint16_t aOnes[64];
    std::fill(std::begin(aOnes), std::end(aOnes), std::uint16_t{32768});
    for (int nKind = 0; nKind < 5; ++nKind) {
        Random random(static_cast<unsigned>(nKind + 1));
        constexpr int kBlocks = 4000;
        double aSquares[64] = {}, aErrors[64] = {};
        int nPeak = 0;
        for (int n = 0; n < kBlocks; ++n) {
            const Samples samples = RandomSamples(random, nKind);
            Block got;
            ASSERT_EQ(ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples.data(), 8, got.data(), aOnes), 0);
            const auto exact = ExactCoefficients(samples);
            for (std::size_t i = 0; i < 64; ++i) {
                // Halves go up, which sums of 64 samples over 8 often are.
                const int nError = got[i] - static_cast<int>(std::floor(exact[i] + 0.5 + 1e-9));
                nPeak = std::max(nPeak, std::abs(nError));
                aSquares[i] += nError * nError;
                aErrors[i] += nError;
            }
        }
        EXPECT_LE(nPeak, 1) << nKind;
        if (nKind == 4)
            continue; // 64 pictures over and over are no random range
        for (std::size_t i = 0; i < 64; ++i) {
            EXPECT_LE(aSquares[i] / kBlocks, 0.025) << nKind << " at " << i;
            EXPECT_LE(std::abs(aErrors[i]) / kBlocks, 0.015) << nKind << " at " << i;
        }
        EXPECT_LE(std::accumulate(aSquares, aSquares + 64, 0.0) / 64 / kBlocks, 0.02) << nKind;
    }
}

// The quantiser on the transform's own values: product, shift by 15, ties to even; strides are kept to.
TEST_P(EncoderKernels, QuantiserRoundsToEven) {
    Random random(11);
    std::uint16_t aOnes[64], aFactors[64];
    std::fill(std::begin(aOnes), std::end(aOnes), std::uint16_t{32768});
    for (int n = 0; n < 600; ++n) {
        const Samples samples = RandomSamples(random, n);
        Bytes wide(19 * 7 + 8);
        for (std::size_t y = 0; y < 8; ++y)
            std::copy_n(samples.begin() + 8 * y, 8, wide.begin() + 19 * y);
        for (std::uint16_t& nFactor : aFactors)
            nFactor =
                static_cast<std::uint16_t>(n % 2 == 0 ? 32768u >> (random() % 8) : 1 + random() % 32768);
        Block plain, got;
        ASSERT_EQ(ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(samples.data(), 8, plain.data(), aOnes), 0);
        ASSERT_EQ(ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(wide.data(), 19, got.data(), aFactors), 0);
        for (std::size_t i = 0; i < 64; ++i)
            ASSERT_EQ(got[i], std::lrint(std::ldexp(plain[i] * double{1} * aFactors[i], -15))) << i;
    }
}

// Colour by its formula, over all levels of grey and random pixels.
TEST_P(EncoderKernels, ColoursFollowTheMatrix) {
    Random random(5);
    constexpr int kWidth = 37, kHeight = 21, kStep = 160, kPlaneStep = 40;
    Bytes pixels(kStep * kHeight);
    for (std::uint8_t& n : pixels)
        n = static_cast<std::uint8_t>(random() % 8 == 0 ? 255 * (random() & 1) : random());
    Bytes aPlanes[4];
    std::uint8_t* apPlanes[4];
    for (int i = 0; i < 4; ++i) {
        aPlanes[i].assign(kPlaneStep * kHeight, 0xA5);
        apPlanes[i] = aPlanes[i].data();
    }
    const auto expect = [&](int nChannels, int nRed, int nBlue, bool bComplement) {
        for (int y = 0; y < kHeight; ++y) {
            for (int x = 0; x < kWidth; ++x) {
                const std::uint8_t* p = pixels.data() + y * kStep + x * nChannels;
                const auto sample = [&](int i) { return bComplement ? 255 - p[i] : p[i]; };
                const int r = sample(nRed), g = sample(1), b = sample(nBlue);
                const int i = y * kPlaneStep + x;
                ASSERT_EQ(apPlanes[0][i], (19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
                ASSERT_EQ(apPlanes[1][i], (-11059 * r - 21709 * g + 32768 * b + 8421375) >> 16);
                ASSERT_EQ(apPlanes[2][i], (32768 * r - 27439 * g - 5329 * b + 8421375) >> 16);
            }
            ASSERT_EQ(apPlanes[0][y * kPlaneStep + kWidth], 0xA5) << "behind the row";
        }
    };
    const IppiSize size{kWidth, kHeight};
    ASSERT_EQ(ippiRGBToYCbCr_JPEG_8u_C3P3R(pixels.data(), kStep, apPlanes, kPlaneStep, size), 0);
    expect(3, 0, 2, false);
    Bytes luma(kPlaneStep * kHeight, 0xA5);
    ASSERT_EQ(ippiRGBToY_JPEG_8u_C3C1R(pixels.data(), kStep, luma.data(), kPlaneStep, size), 0);
    EXPECT_EQ(luma, aPlanes[0]);
    ASSERT_EQ(ippiBGRToYCbCr_JPEG_8u_C3P3R(pixels.data(), kStep, apPlanes, kPlaneStep, size), 0);
    expect(3, 2, 0, false);
    ASSERT_EQ(ippiCMYKToYCCK_JPEG_8u_C4P4R(pixels.data(), kStep, apPlanes, kPlaneStep, size), 0);
    expect(4, 0, 2, true);
    ASSERT_EQ(apPlanes[3][kPlaneStep + 5], pixels[kStep + 23]);

    // Splitting, also as one long row.
    ASSERT_EQ(ippiCopy_8u_C4P4R(pixels.data(), kStep, apPlanes, kStep / 4, {kStep / 4, kHeight}), 0);
    EXPECT_EQ(apPlanes[2][kStep / 4 * 7 + 3], pixels[kStep * 7 + 14]);
    ASSERT_EQ(ippiCopy_8u_C3P3R(pixels.data(), kStep, apPlanes, kPlaneStep, size), 0);
    EXPECT_EQ(apPlanes[2][kPlaneStep * 7 + 3], pixels[kStep * 7 + 11]);
    const std::uint8_t aRow[] = {1, 2, 4, 4, 255, 254};
    ASSERT_EQ(ippiSampleDownH2V1_JPEG_8u_C1R(aRow, 6, {6, 1}, luma.data(), 3, {3, 1}), 0);
    EXPECT_EQ(Bytes(luma.begin(), luma.begin() + 3), (Bytes{2, 4, 255}));
}

} // namespace
