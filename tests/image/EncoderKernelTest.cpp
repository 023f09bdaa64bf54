// The encoder's kernels against their contracts, at every level of the machine.

#include "image/BlockKernels.h"
#include "image/JpegSamples.h"
#include "image/KernelLevel.h"
#include "image/ReferenceTransform.h"
#include "image/jpegenc/JpegEncoderTables.h"
#include "image/kernels/Kernels.h"
#include "image/kernels/Tables.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <memory>
#include <numeric>
#include <random>
#include <vector>

namespace {

using samples::Block;
using samples::BlockWriter;
using samples::Bytes;
using Samples = std::array<std::uint8_t, 64>;

using Random = std::mt19937;

using EncoderKernels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, EncoderKernels, EveryKernelLevel(), KernelLevelName);

TEST_P(EncoderKernels, BadArgumentsAreRefused) {
    std::uint8_t s[64] = {}, d[256] = {};
    std::uint8_t* aPlanes[4] = {d, d, d, nullptr};
    std::int16_t c[64] = {}, dc = 0;
    std::uint16_t t[64] = {};
    std::uint32_t counts[256] = {};
    std::int32_t pos = 0, negative = -1;
    ippiEncodeHuffmanSpec huffman{};
    ippiEncodeHuffmanState state{};
    IppScanComponent scan{s, t, &huffman, &huffman, 8, 1, 1, 0};
    const auto first = [&](int nSs, int nSe, int nAl) {
        return ippiEncodeHuffman8x8_ACFirst_JPEG_16s1u_C1(c, d, 64, &pos, nSs, nSe, nAl, &huffman, &state, 0);
    };
    const std::pair<IppStatus, IppStatus> aRows[] = {
        {-5, ippiQuantFwdRawTableInit_JPEG_8u(s, 0)},
        {-8, ippiQuantFwdRawTableInit_JPEG_8u(nullptr, 50)},
        {-5, ippiQuantFwdTableInit_JPEG_8u16u(s, t)}, // steps of 0
        {-8, ippiEncodeHuffmanSpecInit_JPEG_8u(s, s, nullptr)},
        {-8, ippiEncodeHuffmanSpecFree_JPEG_8u(nullptr)},
        {-8, ippiEncodeHuffmanRawTableInit_JPEG_8u(counts, nullptr, d)},
        {-8, ippiEncodeHuffmanStateInitAlloc_JPEG_8u(nullptr)},
        {-8, ippiEncodeHuffman8x8_JPEG_16s1u_C1(c, d, 64, &pos, &dc, &huffman, nullptr, &state, 0)},
        {-6, ippiEncodeHuffman8x8_JPEG_16s1u_C1(c, d, -1, &pos, &dc, &huffman, &huffman, &state, 0)},
        {-5, ippiEncodeHuffman8x8_JPEG_16s1u_C1(c, d, 64, &negative, &dc, &huffman, &huffman, &state, 0)},
        {-5, ippiEncodeHuffman8x8_DCFirst_JPEG_16s1u_C1(c, d, 64, &pos, &dc, 14, &huffman, &state, 0)},
        {-5, ippiEncodeHuffman8x8_DCRefine_JPEG_16s1u_C1(c, d, 64, &pos, -1, &state, 0)},
        {-5, first(0, 5, 0)},
        {-5, first(64, 64, 0)},
        {-5, first(5, 4, 0)},
        {-5, first(1, 64, 0)},
        {-5, first(1, 5, 14)},
        {-5, ippiGetHuffmanStatistics8x8_ACRefine_JPEG_16s_C1(c, counts, 1, 64, 0, &state, 0)},
        {-14, ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(s, 0, c, t)},
        {-8, ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(nullptr, 8, c, t)},
        {-64, ippxEncodeMcus_8u1u(&scan, 1, 1, d, 256, &pos, &state)}, // tables without codes
        {-5, ippxEncodeMcus_8u1u(&scan, 5, 1, d, 256, &pos, &state)},
        {-6, ippxTransformMcus_8u16s(&scan, 1, 0, c)},
        {-8, ippxTransformMcus_8u16s(&scan, 1, 1, nullptr)},
        {-8, ippiRGBToYCbCr_JPEG_8u_C3P3R(s, 9, nullptr, 3, {3, 3})},
        {-8, ippiCMYKToYCCK_JPEG_8u_C4P4R(s, 9, aPlanes, 3, {3, 3})},
        {-6, ippiBGRToYCbCr_JPEG_8u_C3P3R(s, 9, aPlanes, 3, {0, 3})},
        {-14, ippiRGBToY_JPEG_8u_C3C1R(s, 0, d, 3, {3, 3})},
        {-8, ippiCopy_8u_C4P4R(s, 9, aPlanes, 3, {3, 3})},
        {-6, ippiSampleDownH2V1_JPEG_8u_C1R(s, 8, {1, 8}, d, 8, {4, 8})},
    };
    for (std::size_t i = 0; i < std::size(aRows); ++i)
        EXPECT_EQ(aRows[i].first, aRows[i].second) << "row " << i;
    EXPECT_TRUE(std::all_of(std::begin(d), std::end(d), [](auto n) { return n == 0; }));
    EXPECT_EQ(pos, 0);
}

TEST_P(EncoderKernels, QualityScalesTheSteps) {
    std::uint8_t aRaw[64];
    std::iota(std::begin(aRaw), std::end(aRaw), std::uint8_t{11});
    const auto scaled = [&](int nQuality) {
        Samples copy;
        std::copy(std::begin(aRaw), std::end(aRaw), copy.begin());
        EXPECT_EQ(ippiQuantFwdRawTableInit_JPEG_8u(copy.data(), nQuality), 0);
        return copy;
    };
    EXPECT_TRUE(std::equal(std::begin(aRaw), std::end(aRaw), scaled(50).begin()));
    for (const int nQuality : {100, 101, 1000000000})
        EXPECT_EQ(std::ranges::count(scaled(nQuality), 1), 64) << nQuality;
    EXPECT_EQ(scaled(1)[0], 255);                    // 11 * 5000 / 100, clamped
    EXPECT_EQ(scaled(75)[0], 6);                     // (11 * 50 + 50) / 100
    EXPECT_EQ(scaled(30)[0], (11 * 166 + 50) / 100); // 5000/30 rounded down

    const std::uint8_t aSteps[] = {1, 2, 3, 16, 255};
    const std::uint16_t aFactors[] = {32768, 16384, 10923, 2048, 129};
    for (std::size_t i = 0; i < std::size(aSteps); ++i) {
        std::uint16_t aTable[64];
        std::fill(std::begin(aRaw), std::end(aRaw), std::uint8_t{1});
        aRaw[2] = aSteps[i]; // third in zigzag order is the first of the second row
        ASSERT_EQ(ippiQuantFwdTableInit_JPEG_8u16u(aRaw, aTable), 0);
        EXPECT_EQ(aTable[8], aFactors[i]);
        EXPECT_EQ(aTable[0], 32768);
    }
}

using SpecOwner = std::unique_ptr<ippiEncodeHuffmanSpec, CJPEGEncoderHuffmanTable::SpecDeleter>;

IppStatus MakeSpec(const std::uint8_t* pBits, const std::uint8_t* pValues, SpecOwner& owner) {
    ippiEncodeHuffmanSpec* pSpec = nullptr;
    const IppStatus nStatus = ippiEncodeHuffmanSpecInit_JPEG_8u(pBits, pValues, &pSpec);
    owner.reset(pSpec);
    return nStatus;
}

TEST_P(EncoderKernels, CodesAreCanonical) {
    CJPEGEncoderHuffmanTable dc;
    ASSERT_EQ(dc.InitStandard(0, 0), 0);
    EXPECT_EQ(dc.m_pSpec->aCode[0], 0x20000u);  // 00
    EXPECT_EQ(dc.m_pSpec->aCode[5], 0x30006u);  // 110
    EXPECT_EQ(dc.m_pSpec->aCode[11], 0x901FEu); // 1 1111 1110
    EXPECT_EQ(dc.m_pSpec->aCode[12], 0u);       // none
    std::uint8_t aBits[16] = {3}, aValues[256] = {};
    SpecOwner over;
    EXPECT_EQ(MakeSpec(aBits, aValues, over), -64);
    ASSERT_TRUE(over);
    EXPECT_EQ(over->aCode[0], 0u);
    std::fill(std::begin(aBits), std::end(aBits), std::uint8_t{0});
    aBits[15] = 255;
    aBits[14] = 2; // 257 values
    EXPECT_EQ(MakeSpec(aBits, aValues, over), -64);
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

// One code of eight ones would be 0xFF in the stream.
TEST_P(EncoderKernels, BytesOfTheBitWriter) {
    const std::uint8_t aBits[16] = {0, 0, 0, 0, 0, 0, 0, 255}; // symbol n has code n
    std::uint8_t aValues[256];
    std::iota(std::begin(aValues), std::end(aValues), std::uint8_t{0});
    SpecOwner huffman;
    ASSERT_EQ(MakeSpec(aBits, aValues, huffman), 0);
    const auto write = [&](BlockWriter& writer, const Block& block) {
        std::int16_t nDc = 0;
        return writer.Write(block.data(), huffman.get(), huffman.get(), nDc);
    };
    // DC 0; sixteen zeros and three more; size 8 of -1 - 255: 0x00 behind it, and 255: 0xFF stuffed; the end.
    Block block{};
    block[g_aZigZag[20]] = -255;
    block[g_aZigZag[21]] = 255;
    BlockWriter writer{Bytes(64)};
    ASSERT_EQ(write(writer, block), 0);
    EXPECT_EQ(writer.Flush(), (Bytes{0x00, 0xF0, 0x38, 0x00, 0x08, 0xFF, 0x00, 0x00})) << "no bits are held";

    // Every smaller buffer stops the block at its end, between 0xFF and its zero too.
    for (std::size_t n = 0; n < 8; ++n) {
        BlockWriter small{Bytes(n)};
        EXPECT_EQ(write(small, block), n == 0 && !small.data.data() ? -8 : -62) << n;
        EXPECT_LE(small.nPos, samples::Size(small.data));
    }
    block[g_aZigZag[20]] = -32768; // no symbol has room for 16 bits
    BlockWriter large{Bytes(64)};
    EXPECT_EQ(write(large, block), -64);

    // Bits that are held are filled up with ones.
    BlockWriter one{Bytes(64)};
    ASSERT_EQ(write(one, Block{1}), 0); // 0x01, 1, 0x00
    EXPECT_EQ(one.Flush(), (Bytes{0x01, 0x80, 0x7F}));
    EXPECT_EQ(one.state.nBits, 0);
}

samples::DecodeTable DecoderOf(const CJPEGEncoderHuffmanTable& table) {
    samples::HuffmanTable same;
    std::copy_n(table.m_aBits, 16, same.aBits);
    same.values.assign(table.m_aValues, table.m_aValues + 256);
    return samples::DecodeTable(same);
}

// What the writer writes the decoder's kernel reads back.
TEST_P(EncoderKernels, BlocksComeBack) {
    CJPEGEncoderHuffmanTable dc, ac;
    ASSERT_EQ(dc.InitStandard(1, 0), 0);
    ASSERT_EQ(ac.InitStandard(1, 1), 0);
    Random random(3);
    std::vector<Block> blocks(400);
    for (Block& block : blocks) {
        const unsigned nDensity = 1 + random() % 64;
        for (std::int16_t& n : block) {
            if (random() % 64 < nDensity)
                n = static_cast<std::int16_t>((static_cast<int>(random() % 2047) - 1023) >> (random() % 11));
        }
    }
    BlockWriter writer{Bytes(400 * 512)};
    std::int16_t nLast = 0;
    for (const Block& block : blocks)
        ASSERT_EQ(writer.Write(block.data(), dc.m_pSpec.get(), ac.m_pSpec.get(), nLast), 0);
    samples::BlockReader reader{writer.Flush()};
    const samples::DecodeTable dcTable = DecoderOf(dc), acTable = DecoderOf(ac);
    for (const Block& block : blocks) {
        ASSERT_EQ(reader.Next(dcTable, acTable), 0);
        ASSERT_EQ(reader.block, block);
    }
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
            std::copy_n(samples.begin() + static_cast<std::ptrdiff_t>(8 * y), 8,
                        wide.begin() + static_cast<std::ptrdiff_t>(19 * y));
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

// Many MCUs are the bytes of the block kernels, wherever the calls are cut and whatever room there is.
TEST_P(EncoderKernels, ManyMcusAreTheBytesOfTheirBlocks) {
    Random random(23);
    constexpr int kMcus = 90, kStep = 16 * kMcus + 5;
    Bytes samples(kStep * 16);
    for (std::size_t i = 0; i < samples.size(); ++i)
        samples[i] = static_cast<std::uint8_t>(i % kStep * 3 + random() % (1 + i % 200));
    CJPEGEncoderHuffmanTable aDc[2], aAc[2];
    for (int i = 0; i < 2; ++i) {
        ASSERT_EQ(aDc[i].InitStandard(i, 0), 0);
        ASSERT_EQ(aAc[i].InitStandard(i, 1), 0);
    }
    const int aForms[][3] = {{1, 1, 1}, {3, 2, 1}, {3, 2, 2}, {4, 2, 2}}; // components and luma's factors
    for (const auto& form : aForms) {
        CJPEGEncoderQuantTable quant;
        ASSERT_EQ(quant.Init(0, form[0] == 4 ? 100 : 70), 0); // more than one window of bytes at 100
        const auto components = [&] {
            std::vector<IppScanComponent> scan;
            for (int i = 0; i < form[0]; ++i) {
                const bool bMiddle = i == 1 || i == 2;
                scan.push_back({samples.data() + i, quant.m_aFactors, aDc[bMiddle].m_pSpec.get(),
                                aAc[bMiddle].m_pSpec.get(), kStep, bMiddle ? 1 : form[1],
                                bMiddle ? 1 : form[2], 0});
            }
            return scan;
        };
        // By blocks.
        BlockWriter writer{Bytes(2 << 20)};
        auto scan = components();
        int nMcuBlocks = 0;
        for (const IppScanComponent& c : scan)
            nMcuBlocks += c.nHSampling * c.nVSampling;
        std::vector<std::int16_t> coefficients(static_cast<std::size_t>(64 * nMcuBlocks * kMcus));
        ASSERT_EQ(ippxTransformMcus_8u16s(scan.data(), form[0], kMcus, coefficients.data()), 0);
        const std::int16_t* pCoefficients = coefficients.data();
        scan = components();
        for (int nMcu = 0; nMcu < kMcus; ++nMcu) {
            for (IppScanComponent& c : scan) {
                for (int n = 0; n < c.nHSampling * c.nVSampling; ++n, pCoefficients += 64) {
                    const std::uint8_t* const p = c.pSamples + nMcu * 8 * c.nHSampling +
                                                  n / c.nHSampling * 8 * kStep + n % c.nHSampling * 8;
                    Block block;
                    ASSERT_EQ(ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(p, kStep, block.data(), c.pTable), 0);
                    ASSERT_TRUE(std::equal(block.begin(), block.end(), pCoefficients));
                    ASSERT_EQ(writer.Write(block.data(), c.pDcTable, c.pAcTable, c.nLastDc), 0);
                }
            }
        }
        const std::int32_t nWanted = writer.nPos;
        const Bytes wanted = samples::Part(writer.data, 0, static_cast<std::size_t>(nWanted));
        EXPECT_NE(std::search_n(wanted.begin(), wanted.end(), 1, 0xFF), wanted.end()) << "nothing stuffed";

        std::vector<std::int32_t> sizes{nWanted, nWanted + 1, nWanted + 9};
        for (int i = 0; i < 40; ++i)
            sizes.push_back(static_cast<std::int32_t>(random() % static_cast<unsigned>(nWanted)));
        for (const std::int32_t nSize : sizes) {
            const std::unique_ptr<std::uint8_t[]> out(new std::uint8_t[static_cast<std::size_t>(nSize)]);
            scan = components();
            ippiEncodeHuffmanState state{};
            std::int32_t nPos = 0;
            IppStatus nStatus = 0;
            for (int nLeft = kMcus; nLeft > 0 && nStatus == 0;) {
                const int nRun = std::min(nLeft, 1 + static_cast<int>(random() % 60));
                nStatus = ippxEncodeMcus_8u1u(scan.data(), form[0], nRun, out.get(), nSize, &nPos, &state);
                nLeft -= nRun;
            }
            ASSERT_EQ(nStatus, nSize < nWanted ? -62 : 0) << nSize;
            ASSERT_LE(nPos, nSize);
            ASSERT_TRUE(std::equal(out.get(), out.get() + nPos, wanted.begin())) << nSize;
            if (nStatus == 0) {
                EXPECT_EQ(nPos, nWanted);
                EXPECT_EQ(state.nBits, writer.state.nBits);
                EXPECT_EQ(state.nAccumulator, writer.state.nAccumulator);
            }
        }
    }
}

} // namespace
