// The kernels against their contracts, and every level of the machine against level 0.

#include "image/BlockKernels.h"
#include "image/JpegSamples.h"
#include "image/KernelLevel.h"
#include "image/ReferenceTransform.h"
#include "image/kernels/Kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <cstring>
#include <functional>
#include <numeric>
#include <optional>
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
    const IppStatus nFirst = ippStaticInit();
    EXPECT_TRUE(nFirst == ippStsNoErr || nFirst == ippStsOtherVendor);
    const int nLevel = g_nKernelLevel;
    EXPECT_EQ(nLevel, ippLevelFromFeatures(ippGetFeatures()).nLevel);
    EXPECT_EQ(ippStaticInit(), nFirst);
    EXPECT_EQ(g_nKernelLevel, nLevel);
    g_nKernelLevel = 0;
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
        std::memset(p, 0xA5, static_cast<std::size_t>(n));
        ippFree(p);
    }
    EXPECT_EQ(ippAlignPtr(reinterpret_cast<void*>(64), 32), reinterpret_cast<void*>(64));
    EXPECT_EQ(ippAlignPtr(reinterpret_cast<void*>(65), 32), reinterpret_cast<void*>(96));
}

// Every bad argument has its status and leaves the destination alone.
TEST_P(KernelLevels, BadArgumentsAreRefused) {
    std::uint8_t s[64] = {}, d[64] = {};
    std::int16_t c[64] = {}, dc = 0;
    std::uint16_t t[64] = {};
    std::int32_t pos = 0, marker = 0, negative = -1;
    ippiDecodeHuffmanSpec huffman{};
    ippiDecodeHuffmanState state{};
    const auto block = [&](const std::uint8_t* pSrc, int nSize, std::int32_t* pPos, std::int16_t* pOut) {
        return ippiDecodeHuffman8x8_JPEG_1u16s_C1(pSrc, nSize, pPos, pOut, &dc, &marker, &huffman, &huffman,
                                                  &state);
    };
    struct Row {
        const char* szName;
        IppStatus nWanted, nGot;
    };
    std::uint8_t aOver[16] = {3};
    ippiDecodeHuffmanSpec* pOver = nullptr;
    const Row aRows[] = {
        {"copy, no source", -8, ippsCopy_8u(nullptr, d, 1)},
        {"copy, no length", -6, ippsCopy_8u(s, d, 0)},
        {"zero, no destination", -8, ippsZero_8u(nullptr, 1)},
        {"zero, no length", -6, ippsZero_8u(d, -1)},
        {"plane, no destination", -8, ippiCopy_8u_C1R(s, 8, nullptr, 8, {8, 8})},
        {"plane, no width", -6, ippiCopy_8u_C1R(s, 8, d, 8, {0, 8})},
        {"plane, no height", -6, ippiCopy_8u_C1R(s, 8, d, 8, {8, 0})},
        {"plane, no stride", -14, ippiCopy_8u_C1R(s, 8, d, 0, {8, 8})},
        {"plane, negative stride", -14, ippiCopy_8u_C1R(s, -8, d, 8, {8, 8})},
        {"steps, no table", -8, ippiQuantInvTableInit_JPEG_8u16u(s, nullptr)},
        {"huffman, no place", -8, ippiDecodeHuffmanSpecInit_JPEG_8u(s, s, nullptr)},
        {"huffman, over-full", -64, ippiDecodeHuffmanSpecInit_JPEG_8u(aOver, s, &pOver)},
        {"huffman, free of none", -8, ippiDecodeHuffmanSpecFree_JPEG_8u(nullptr)},
        {"state, no place", -8, ippiDecodeHuffmanStateInitAlloc_JPEG_8u(nullptr)},
        {"state, reset of none", -8, ippiDecodeHuffmanStateInit_JPEG_8u(nullptr)},
        {"block, no source", -8, block(nullptr, 1, &pos, c)},
        {"block, no position", -8, block(s, 1, nullptr, c)},
        {"block, no destination", -8, block(s, 1, &pos, nullptr)},
        {"block, negative size", -5, block(s, -1, &pos, c)},
        {"block, negative position", -5, block(s, 1, &negative, c)},
        {"transform, no table", -8, ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(c, d, 8, nullptr)},
        {"transform, no stride", -14, ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(c, d, 0, t)},
        {"up, no source", -8, ippiSampleUpH2V1_JPEG_8u_C1R(nullptr, 8, {4, 1}, d, 8, {8, 1})},
        {"up, no width", -6, ippiSampleUpH2V1_JPEG_8u_C1R(s, 8, {4, 1}, d, 8, {0, 1})},
        {"up, no stride", -14, ippiSampleUpH2V1_JPEG_8u_C1R(s, 0, {4, 1}, d, 8, {8, 1})},
        {"down, one column", -6, ippiSampleDownH2V2_JPEG_8u_C1R(s, 8, {1, 2}, d, 8, {1, 1})},
        {"down, one row", -6, ippiSampleDownH2V2_JPEG_8u_C1R(s, 8, {2, 1}, d, 8, {1, 1})},
        {"down, no stride", -14, ippiSampleDownH2V2_JPEG_8u_C1R(s, 8, {2, 2}, d, -1, {1, 1})},
    };
    for (const Row& row : aRows)
        EXPECT_EQ(row.nGot, row.nWanted) << row.szName;
    EXPECT_TRUE(std::all_of(std::begin(d), std::end(d), [](int n) { return n == 0; }));
    ASSERT_NE(pOver, nullptr) << "the table comes back with the error";
    ippiDecodeHuffmanSpecFree_JPEG_8u(pOver);
}

// Fills s with what the kernel makes of c, steps all 1, and r with the exact samples, rounded and clamped
// likewise.
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

// The classic accuracy test: random blocks through an exact forward transform, then peak, mean and mean
// square error.
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

TEST_P(KernelLevels, InverseTransformOfSingleCoefficients) {
    for (int nAt = 0; nAt < 64; ++nAt) {
        for (const int nValue : {-1000, -17, -1, 1, 16, 900}) {
            std::int16_t c[64] = {};
            c[nAt] = static_cast<std::int16_t>(nValue);
            std::uint8_t s[64];
            int r[64];
            BothInverses(c, s, r);
            for (int i = 0; i < 64; ++i)
                ASSERT_LE(std::abs(s[i] - r[i]), 1) << nValue << " at " << nAt << ", sample " << i;
        }
    }
}

TEST_P(KernelLevels, PlanesOfEveryWidth) {
    for (int w = 1; w <= 70; ++w) {
        constexpr int h = 4;
        const int nStep = w + 7;
        // One sample before and behind each row; heap blocks of exact size, so that a sanitizer sees each
        // end.
        const int nIn = 2 * w + 2;
        const Bytes in = Random(static_cast<std::size_t>(nIn * 2 * h), static_cast<unsigned>(w));
        const auto at = [&](int x, int y) { return int{in[static_cast<std::size_t>(y * nIn + 1 + x)]}; };
        Bytes out(static_cast<std::size_t>(nStep * (h - 1) + w), 0xEE);
        Bytes want = out;
        const auto expect = [&](const char* szName, const std::function<int(int, int)>& formula) {
            for (int y = 0; y < h; ++y) {
                for (int x = 0; x < w; ++x)
                    want[static_cast<std::size_t>(y * nStep + x)] = static_cast<std::uint8_t>(formula(x, y));
            }
            EXPECT_EQ(out, want) << szName << " " << w;
        };
        ASSERT_EQ(ippiCopy_8u_C1R(in.data() + 1, nIn, out.data(), nStep, {w, h}), 0);
        expect("copy", at);
        ASSERT_EQ(
            ippiSampleUpH2V1_JPEG_8u_C1R(in.data() + 1, nIn, {(w + 1) / 2, h}, out.data(), nStep, {w, h}), 0);
        expect("up", [&](int x, int y) {
            const int i = x / 2;
            return x % 2 == 0 ? (3 * at(i, y) + at(i - 1, y) + 1) >> 2
                              : (3 * at(i, y) + at(i + 1, y) + 2) >> 2;
        });
        ASSERT_EQ(
            ippiSampleDownH2V2_JPEG_8u_C1R(in.data() + 1, nIn, {2 * w, 2 * h}, out.data(), nStep, {w, h}), 0);
        expect("down", [&](int x, int y) {
            return (at(2 * x, 2 * y) + at(2 * x + 1, 2 * y) + at(2 * x, 2 * y + 1) +
                    at(2 * x + 1, 2 * y + 1) + 3) >>
                   2;
        });
    }
}

// A decoder of the plainest kind: a list of bits, and codes compared one by one.
class ReferenceBlocks {
public:
    explicit ReferenceBlocks(const Bytes& data) {
        for (std::size_t i = 0; i < data.size(); ++i) {
            if (data[i] == 0xFF) {
                while (i + 1 < data.size() && data[i + 1] == 0xFF)
                    ++i;
                if (i + 1 == data.size())
                    break;
                if (data[++i] != 0) {
                    m_bMarker = true;
                    break;
                }
                Append(0xFF);
            } else {
                Append(data[i]);
            }
        }
    }

    // The block, or nothing where the bits do not suffice or no code fits.
    std::optional<Block> Next(const HuffmanTable& dc, const HuffmanTable& ac) {
        Block block{};
        const auto dcSymbol = Symbol(dc);
        const auto difference = dcSymbol ? Value(*dcSymbol & 15) : std::nullopt;
        if (!difference)
            return std::nullopt;
        m_nLastDc += *difference;
        block[0] = static_cast<std::int16_t>(m_nLastDc);
        for (int k = 1; k < 64; ++k) {
            const auto symbol = Symbol(ac);
            if (!symbol || *symbol == 0)
                return symbol ? std::optional(block) : std::nullopt;
            k += *symbol >> 4;
            const auto value = Value(*symbol & 15);
            if (!value)
                return std::nullopt;
            if (*value != 0)
                block[static_cast<std::size_t>(NaturalOrder(k))] = static_cast<std::int16_t>(*value);
        }
        return block;
    }
    bool EndsInMarker() const { return m_bMarker; }

private:
    void Append(int nByte) {
        for (int i = 7; i >= 0; --i)
            m_bits.push_back((nByte >> i & 1) != 0);
    }
    std::optional<int> Bits(int n) {
        int nValue = 0;
        for (; n > 0; --n) {
            if (m_nAt == m_bits.size())
                return std::nullopt;
            nValue = nValue << 1 | (m_bits[m_nAt++] ? 1 : 0);
        }
        return nValue;
    }
    std::optional<int> Value(int nSize) {
        const auto raw = Bits(nSize);
        return raw && nSize > 0 && *raw < 1 << (nSize - 1) ? *raw - (1 << nSize) + 1 : raw;
    }
    std::optional<int> Symbol(const HuffmanTable& table) {
        int nCode = 0, nFirst = 0;
        std::size_t nIndex = 0;
        for (const int nCount : table.aBits) {
            const auto bit = Bits(1);
            if (!bit)
                return std::nullopt;
            nCode = nCode << 1 | *bit;
            if (nCode - nFirst < nCount)
                return table.values[nIndex + static_cast<std::size_t>(nCode - nFirst)];
            nIndex += static_cast<std::size_t>(nCount);
            nFirst = (nFirst + nCount) << 1;
        }
        return std::nullopt;
    }
    // Walks the diagonals of T.81 Figure A.6.
    static int NaturalOrder(int k) {
        int x = 0, y = 0;
        for (bool bUp = true; k > 0; --k) {
            if (bUp ? (y == 0 || x == 7) : (x == 0 || y == 7)) {
                (bUp ? x < 7 : y == 7) ? ++x : ++y;
                bUp = !bUp;
            } else {
                x += bUp ? 1 : -1;
                y += bUp ? -1 : 1;
            }
        }
        return 8 * y + x;
    }

    std::vector<bool> m_bits;
    std::size_t m_nAt = 0;
    int m_nLastDc = 0;
    bool m_bMarker = false;
};

// The two tables and the entropy-coded data of a grey stream.
struct GreyScan {
    explicit GreyScan(const Bytes& jpeg) : data(DataOf(jpeg)) {
        for (const Bytes& segment : SegmentsOf(jpeg, 0xC4)) {
            HuffmanTable& table = segment[4] >> 4 != 0 ? ac : dc;
            std::copy_n(segment.data() + 5, 16, table.aBits);
            table.values = Part(segment, 21);
        }
    }
    HuffmanTable dc, ac;
    Bytes data;
};

// Every cut of the data gives the blocks that the plain decoder gives, and the right status behind them.
TEST_P(KernelLevels, BlocksOfEveryCutOfAScan) {
    for (const bool bOptimised : {false, true}) {
        for (const int nQuality : {5, 60, 100}) {
            Recipe recipe;
            recipe.nWidth = recipe.nHeight = 24;
            recipe.nComponents = 1;
            recipe.nQuality = nQuality;
            recipe.bOptimised = bOptimised;
            const GreyScan scan(Encode(recipe));
            const DecodeSpec dc(scan.dc), ac(scan.ac);
            for (std::size_t nCut = 0; nCut <= scan.data.size(); ++nCut) {
                BlockReader reader{Part(scan.data, 0, nCut)};
                ReferenceBlocks reference(reader.data);
                for (int n = 0;; ++n) {
                    const IppStatus nStatus = reader.Next(dc, ac);
                    ASSERT_LE(reader.nPos, Size(reader.data));
                    const auto wanted = reference.Next(scan.dc, scan.ac);
                    if (nStatus != 0) {
                        // A lone 0xFF at the end fails as soon as the reader meets it.
                        const bool bLoneFF = nCut > 0 && reader.data.back() == 0xFF;
                        EXPECT_TRUE(!wanted || bLoneFF) << "cut " << nCut << " block " << n;
                        EXPECT_EQ(nStatus, reference.EndsInMarker() ? -63 : -62) << "cut " << nCut;
                        break;
                    }
                    ASSERT_TRUE(wanted) << "cut " << nCut << " block " << n;
                    ASSERT_EQ(reader.block, *wanted) << "cut " << nCut << " block " << n;
                }
            }
        }
    }
}

// Tables of one code each: a DC symbol of 0 is "0", and so is the end of a block; all else has no code.
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
    const DecodeSpec huffman(table);
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
    const DecodeSpec dcSpec(dc), acSpec(ac);
    // 0, then three times sixteen zeros, eight places more, and 7 zeros with a 1: place 64.
    BlockReader within{{0b00000000, 0b11011011, 0, 0, 0, 0, 0, 0, 0}};
    EXPECT_EQ(within.Next(dcSpec, acSpec), 0);
    EXPECT_EQ(within.block[63], 1);
    // The same with 15 zeros at last: place 72.
    BlockReader beyond{{0b00000000, 0b11101010, 0, 0, 0, 0, 0, 0, 0}};
    EXPECT_EQ(beyond.Next(dcSpec, acSpec), -2);
}

TEST_P(KernelLevels, TransformGivesTheBytesOfLevelZero) {
    std::minstd_rand random(7);
    const int nLevel = g_nKernelLevel;
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
        std::uint8_t a[64], b[64];
        ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(c, a, 8, t);
        g_nKernelLevel = 0;
        ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(c, b, 8, t);
        g_nKernelLevel = nLevel;
        ASSERT_TRUE(std::equal(std::begin(a), std::end(a), b)) << "block " << n;
    }
}

} // namespace
