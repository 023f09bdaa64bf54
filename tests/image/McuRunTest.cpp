// The kernel that decodes whole MCUs against the one that decodes a block, at every level: on whole data, on
// every cut of it and on damaged data, both must give the same coefficients, samples and places.

#include "image/ImageCodec.h"
#include "image/JpegSamples.h"
#include "image/KernelLevel.h"
#include "image/kernels/Kernels.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <random>

namespace {

using samples::Bytes;

using McuRuns = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, McuRuns, EveryKernelLevel(), KernelLevelName);

struct Table {
    ~Table() {
        if (pSpec)
            ippiDecodeHuffmanSpecFree_JPEG_8u(pSpec);
    }
    ippiDecodeHuffmanSpec* pSpec = nullptr;
    IppDcLookup dc{};
    IppAcLookup ac{};
};

// The tables and the data of an interleaved scan.
struct Scan {
    explicit Scan(const samples::Recipe& recipe)
        : jpeg(samples::Encode(recipe)), data(samples::DataOf(jpeg)) {
        for (const Bytes& segment : samples::SegmentsOf(jpeg, 0xC4)) {
            Table& table = aTables[segment[4] >> 4][segment[4] & 1];
            EXPECT_EQ(ippiDecodeHuffmanSpecInit_JPEG_8u(&segment[5], &segment[21], &table.pSpec), 0);
            ippDcLookupInit(*table.pSpec, table.dc);
            ippAcLookupInit(*table.pSpec, table.ac);
        }
        for (int i = 0; i < recipe.nComponents; ++i) {
            const bool bLuma = i == 0 && recipe.nComponents > 1;
            for (int n = bLuma ? recipe.nH * recipe.nV : 1; n > 0; --n)
                components.push_back(i);
        }
    }
    Bytes jpeg, data;
    Table aTables[2][2];
    std::vector<int> components; // of each block of an MCU
};

constexpr int kMcus = 6;
std::uint16_t g_aSteps[64];

// All that decoding a row of MCUs leaves behind.
struct Outcome {
    int nDone = 0;
    IppStatus nStatus = 0;
    std::vector<std::int16_t> coefficients;
    Bytes samples;
    std::int16_t anLastDc[4] = {};
    int nBitsLeft = 0; // to the next marker or the end
    int nMarker = 0;
    std::size_t nMarkerAt = 0;

    bool operator==(const Outcome& other) const = default;
};

class RowDecoder {
public:
    RowDecoder(const Scan& scan, const Bytes& data, int nCapacity) : m_scan(scan), m_data(data) {
        m_window.nCapacity = nCapacity;
        m_window.pBytes = IppAllocate<std::uint8_t>(nCapacity + ippWindowSlack);
        m_row.nBlocks = static_cast<std::int32_t>(scan.components.size());
        m_out.coefficients.assign(scan.components.size() * 64 * kMcus, 0x55);
        m_out.samples.assign(m_out.coefficients.size(), 0x55);
        m_row.pCoefficients = m_out.coefficients.data();
        const int nStep = 8 * m_row.nBlocks * kMcus;
        for (int i = 0; i < m_row.nBlocks; ++i) {
            const int nComponent = scan.components[static_cast<std::size_t>(i)];
            const Table& dc = scan.aTables[0][nComponent != 0];
            const Table& ac = scan.aTables[1][nComponent != 0];
            m_row.aBlocks[i] = {nComponent,
                                dc.pSpec,
                                ac.pSpec,
                                &dc.dc,
                                &ac.ac,
                                g_aSteps,
                                m_out.samples.data() + 8 * i,
                                nStep,
                                8 * m_row.nBlocks};
        }
    }

    // By runs of nRun MCUs, or with 0 block by block.
    Outcome Decode(int nRun) {
        while (m_out.nDone < kMcus && m_out.nStatus == 0) {
            const int nWanted = std::min(nRun, kMcus - m_out.nDone);
            std::int32_t nDone = 0;
            if (nRun > 0) {
                std::copy_n(m_out.anLastDc, 4, m_row.anLastDc);
                EXPECT_EQ(ippxDecodeMcus_1u8u(m_data.data(), samples::Size(m_data), &m_nPos, &m_nMarker,
                                              &m_state, &m_window, &m_row, m_out.nDone, nWanted, &nDone),
                          0);
                std::copy_n(m_row.anLastDc, 4, m_out.anLastDc);
                m_out.nDone += nDone;
                nFast += nDone;
            }
            if (nRun == 0 || nDone < nWanted)
                DecodeMcu();
        }
        FindMarker();
        return m_out;
    }

    int nFast = 0;

private:
    void DecodeMcu() {
        std::int16_t* const pBlocks = m_row.pCoefficients + m_out.nDone * m_row.nBlocks * 64;
        for (int i = 0; i < m_row.nBlocks && m_out.nStatus == 0; ++i) {
            const IppMcuBlock& block = m_row.aBlocks[i];
            m_out.nStatus = ippiDecodeHuffman8x8_JPEG_1u16s_C1(
                m_data.data(), samples::Size(m_data), &m_nPos, pBlocks + 64 * i,
                &m_out.anLastDc[block.nComponent], &m_nMarker, block.pDcTable, block.pAcTable, &m_state);
        }
        if (m_out.nStatus != 0)
            return;
        for (int i = 0; i < m_row.nBlocks; ++i) {
            const IppMcuBlock& block = m_row.aBlocks[i];
            EXPECT_EQ(ippiDCTQuantInv8x8LS_JPEG_16s8u_C1R(pBlocks + 64 * i,
                                                          block.pDst + m_out.nDone * block.nDstAdvance,
                                                          block.nDstStep, block.pSteps),
                      0);
        }
        ++m_out.nDone;
    }

    // How far a reader looks ahead is its own affair.
    void FindMarker() {
        m_out.nBitsLeft = m_state.nBits;
        std::size_t nAt = static_cast<std::size_t>(m_nPos);
        for (; m_nMarker == 0 && nAt < m_data.size(); ++nAt) {
            if (m_data[nAt] == 0xFF) {
                while (++nAt < m_data.size() && m_data[nAt] == 0xFF) {
                }
                m_nMarker = nAt < m_data.size() ? m_data[nAt] : 0xFF;
            }
            m_out.nBitsLeft += m_nMarker == 0 ? 8 : 0;
        }
        m_out.nMarker = m_nMarker;
        m_out.nMarkerAt = nAt;
    }

    const Scan& m_scan;
    const Bytes& m_data;
    IppBitWindow m_window;
    IppMcuRow m_row{};
    ippiDecodeHuffmanState m_state{};
    std::int32_t m_nPos = 0, m_nMarker = 0;
    Outcome m_out;
};

void ExpectAlike(const Scan& scan, const Bytes& data, const std::string& name) {
    RowDecoder byBlock(scan, data, 16);
    const Outcome wanted = byBlock.Decode(0);
    for (const auto& [nRun, nCapacity] : {std::pair{kMcus, 16384}, {2, 16384}, {kMcus, 300}, {1, 40}}) {
        RowDecoder byRun(scan, data, nCapacity);
        const Outcome outcome = byRun.Decode(nRun);
        const std::string where = name + " run " + std::to_string(nRun) + " window " +
                                  std::to_string(nCapacity) + " size " + std::to_string(data.size());
        ASSERT_EQ(outcome.nDone, wanted.nDone) << where;
        ASSERT_EQ(outcome.coefficients, wanted.coefficients) << where;
        ASSERT_TRUE(outcome == wanted) << where;
    }
}

std::vector<samples::Recipe> Recipes() {
    std::vector<samples::Recipe> recipes;
    for (const int nQuality : {10, 75, 100}) {
        for (const bool bOptimised : {false, true}) {
            // Six MCUs each.
            recipes.push_back({.nWidth = 48, .nQuality = nQuality, .bOptimised = bOptimised});
            recipes.push_back({.nWidth = 24,
                               .nHeight = 16,
                               .nComponents = 1,
                               .nQuality = nQuality,
                               .bOptimised = bOptimised});
        }
    }
    return recipes;
}

TEST_P(McuRuns, GiveWhatBlocksGive) {
    std::minstd_rand random(3);
    for (int i = 0; i < 64; ++i)
        g_aSteps[i] = static_cast<std::uint16_t>(1 + random() % 60);
    for (const samples::Recipe& recipe : Recipes()) {
        const Scan scan(recipe);
        ASSERT_NO_FATAL_FAILURE(ExpectAlike(scan, scan.data, recipe.Name()));
        RowDecoder whole(scan, scan.data, 16384);
        EXPECT_EQ(whole.Decode(kMcus).nDone, kMcus);
        EXPECT_EQ(whole.nFast, kMcus) << "all of a whole scan goes the fast way";

        for (std::size_t nCut = 1; nCut < scan.data.size(); nCut += 1 + nCut / 200) {
            ASSERT_NO_FATAL_FAILURE(
                ExpectAlike(scan, samples::Part(scan.data, 0, nCut), recipe.Name() + " cut"));
        }
        for (int n = 0; n < 300; ++n) {
            Bytes data = scan.data;
            for (int nDamages = 1 + n % 3; nDamages > 0; --nDamages) {
                const auto nByte = static_cast<std::uint8_t>(random() >> 8);
                data[random() % data.size()] = n % 4 == 0 ? 0xFF : nByte;
            }
            ASSERT_NO_FATAL_FAILURE(ExpectAlike(scan, data, recipe.Name() + " damage " + std::to_string(n)));
        }
    }
}

// Through the facade, with edges, odd numbers of blocks, resampling and restarts.
using McuRunsAboveZero = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, McuRunsAboveZero, KernelLevelsAboveZero(), KernelLevelName);

TEST_P(McuRunsAboveZero, WholePicturesAreThoseOfLevelZero) {
    const auto decode = [](const Bytes& jpeg) {
        Bytes planes(3 * 120 * 120, 0xEE);
        EXPECT_EQ(DecodeJpegYV12(jpeg.data(), samples::Size(jpeg), planes.data(), 120,
                                 planes.data() + 120 * 120, 60, planes.data() + 2 * 120 * 120, 60),
                  0);
        return planes;
    };
    for (int n = 0; n < 60; ++n) {
        const samples::Recipe recipe{.nWidth = 17 + n * 13 % 100,
                                     .nHeight = 9 + n * 29 % 100,
                                     .nComponents = n % 4 == 3 ? 1 : 3,
                                     .nH = n % 4 == 0 ? 1 : 2,
                                     .nV = n % 4 == 2 ? 2 : 1,
                                     .nQuality = 30 + n * 7 % 71,
                                     .nRestartInterval = n % 3 == 0 ? n % 7 : 0,
                                     .bOptimised = n % 5 == 0};
        const Bytes jpeg = samples::Encode(recipe);
        EXPECT_EQ(decode(jpeg), AtLevelZero([&] { return decode(jpeg); })) << recipe.Name();
    }
}

TEST_P(McuRuns, BadArgumentsAreRefused) {
    const Scan scan(Recipes()[0]);
    IppBitWindow window;
    IppMcuRow row{};
    ippiDecodeHuffmanState state{};
    std::int32_t nPos = 0, nMarker = 0, nDone = 7;
    const auto decode = [&](const std::uint8_t* pSrc, std::int32_t nSize) {
        return ippxDecodeMcus_1u8u(pSrc, nSize, &nPos, &nMarker, &state, &window, &row, 0, 1, &nDone);
    };
    EXPECT_EQ(decode(nullptr, 1), -8);
    EXPECT_EQ(decode(scan.data.data(), 1), -8) << "a window without memory";
    window.pBytes = IppAllocate<std::uint8_t>(16 + ippWindowSlack);
    window.nCapacity = 16;
    EXPECT_EQ(decode(scan.data.data(), 1), -5) << "no blocks";
    row.nBlocks = 1;
    EXPECT_EQ(decode(scan.data.data(), -1), -5);
    EXPECT_EQ(nDone, 7);
    nMarker = 0xD9;
    EXPECT_EQ(decode(scan.data.data(), 1), 0);
    EXPECT_EQ(nDone, 0) << "a marker in hand";
}

} // namespace
