// The primary decoder: what it reads from headers, what damage to the data costs, and progressive frames.

#include "image/Decoding.h"
#include "image/JpegSamples.h"
#include "image/KernelLevel.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdlib>

namespace {

using namespace samples;

constexpr std::uint8_t kSof0 = 0xC0, kSof2 = 0xC2, kSos = 0xDA, kDqt = 0xDB, kCom = 0xFE, kApp0 = 0xE0,
                       kApp14 = 0xEE;

// Byte nOffset of a segment, counted from its marker's 0xFF.
std::uint8_t& At(Bytes& jpeg, std::uint8_t nMarker, std::size_t nOffset) {
    return jpeg[FindMarker(jpeg, nMarker) + nOffset];
}

TEST(JpegDecoder, ColorFollowsTheMarkers) {
    struct Row {
        const char* szName;
        int nComponents;
        bool bRgb;
        Marking eMarking;
        int nTransform; // -1: as encoded
        JpegColor eColor;
    };
    const Row aRows[] = {
        {"JFIF, one", 1, false, Marking::Jfif, -1, JC_GRAY},
        {"JFIF, three", 3, false, Marking::Jfif, -1, JC_YCBCR},
        {"none, one", 1, false, Marking::None, -1, JC_GRAY},
        {"none, three", 3, false, Marking::None, -1, JC_YCBCR},
        {"Adobe 0, one", 1, false, Marking::Adobe, 0, JC_GRAY},
        {"Adobe 0, three", 3, true, Marking::None, -1, JC_RGB},
        {"Adobe 0, four", 4, false, Marking::None, -1, JC_CMYK},
        {"Adobe 1, three", 3, false, Marking::Adobe, -1, JC_YCBCR},
        {"Adobe 1, one", 1, false, Marking::Adobe, 1, JC_YCBCR},
        {"Adobe 2, four", 4, false, Marking::None, 2, JC_YCCK},
        {"Adobe 7, three", 3, false, Marking::Adobe, 7, JC_UNKNOWN},
        {"Adobe over JFIF", 3, false, Marking::JfifAndAdobe, 0, JC_RGB},
    };
    for (const Row& row : aRows) {
        const int nFactor = row.nComponents == 3 && !row.bRgb ? 2 : 1;
        Bytes jpeg = Encode({.nComponents = row.nComponents,
                             .nH = nFactor,
                             .nV = nFactor,
                             .bRgb = row.bRgb,
                             .eMarking = row.eMarking});
        if (row.nTransform >= 0)
            At(jpeg, kApp14, 15) = static_cast<std::uint8_t>(row.nTransform);
        const Decode decode(jpeg);
        EXPECT_EQ(decode.eHeader, JPEG_OK) << row.szName;
        EXPECT_EQ(decode.eColor, row.eColor) << row.szName;
        EXPECT_EQ(decode.nChannels, row.nComponents) << row.szName;
        // A pair of colours without conversion is no error.
        EXPECT_EQ(decode.eData, JPEG_OK) << row.szName;
    }
}

TEST(JpegDecoder, KeepsWhatTheHeaderSays) {
    Bytes jpeg = Encode({.nWidth = 37, .nHeight = 21});
    for (const Bytes& segment : {Segment(kCom, {'o', 'n', 'e'}), Segment(kCom, {'t', 'w', 'o', '!'}),
                                 Segment(kApp0, {'J', 'F', 'X', 'X', 0, 0x13, 9, 9}),
                                 Segment(kApp14, {'A', 'd', 'o', 'b', 'e', 0, 100, 1, 2, 3, 4, 1})})
        Insert(jpeg, FindMarker(jpeg, kSof0), segment);
    const Decode decode(jpeg);
    EXPECT_EQ(decode.eData, JPEG_OK);
    const CJPEGDecoder& d = decode.decoder;
    EXPECT_TRUE(d.m_bJfifFound && d.m_bJfxxFound && d.m_bAdobeFound && d.m_bCommentFound);
    EXPECT_EQ(d.m_nJfifMajor, 1);
    EXPECT_EQ(d.m_nJfifXDensity, 1);
    EXPECT_EQ(d.m_nJfxxThumbType, 0x13);
    EXPECT_EQ(d.m_nAdobeVersion, 100);
    EXPECT_EQ(d.m_nAdobeFlags0, 0x0102);
    EXPECT_EQ(d.m_nAdobeFlags1, 0x0304);
    EXPECT_EQ(d.m_nAdobeTransform, 1);
    EXPECT_EQ(d.m_nCommentSize, 4);
    EXPECT_STREQ(d.m_pComment.get(), "two!");
    EXPECT_EQ(decode.eSampling, JS_420);
    EXPECT_EQ(d.m_nMcuCols, 3);
    EXPECT_EQ(d.m_nMcuRows, 2);
    EXPECT_EQ(d.m_nPadX, 11);
    EXPECT_EQ(d.m_nPadY, 11);
}

TEST(JpegDecoder, KeepsTheLowByteOfWideQuantisers) {
    Bytes jpeg = Encode(Recipe{});
    const Decode plain(jpeg);
    const std::size_t n = FindMarker(jpeg, kDqt);
    Bytes content{static_cast<std::uint8_t>(0x10 | jpeg[n + 4])};
    for (std::size_t i = 0; i < 64; ++i) {
        content.push_back(3);
        content.push_back(jpeg[n + 5 + i]);
    }
    Insert(jpeg, FindMarker(jpeg, kSof0), Segment(kDqt, content));
    const Decode wide(jpeg);
    EXPECT_EQ(wide.eData, JPEG_OK);
    EXPECT_EQ(wide.y, plain.y);
}

TEST(JpegDecoder, RestartNumbersDoNotCount) {
    Bytes jpeg = Encode({.nRestartInterval = 1});
    const Decode plain(jpeg);
    std::size_t nRestarts = 0;
    for (std::size_t n = FindMarker(jpeg, kSos); n + 1 < jpeg.size(); ++n) {
        if (jpeg[n] == 0xFF && jpeg[n + 1] >= 0xD0 && jpeg[n + 1] <= 0xD7) {
            jpeg[n + 1] = 0xD5;
            ++nRestarts;
        }
    }
    EXPECT_EQ(nRestarts, 3u);
    const Decode renumbered(jpeg);
    EXPECT_EQ(renumbered.eData, JPEG_OK);
    EXPECT_EQ(renumbered.y, plain.y);
}

// Data that ends early, with an end-of-image marker: the rows before stand, and the rest repeats the
// coefficients of the row where it broke off, whose first block is empty from the next row on.
TEST(JpegDecoder, BrokenDataCostsRowsNotThePicture) {
    Bytes jpeg = Encode({.nWidth = 64, .nHeight = 160});
    const Decode whole(jpeg);
    jpeg.resize(jpeg.size() * 3 / 5);
    Bytes cut = jpeg;
    Insert(cut, cut.size(), {0xFF, 0xD9});
    const Decode decode(cut);
    EXPECT_EQ(decode.eData, JPEG_OK);
    const auto row = [](const Decode& d, std::size_t n) { return Part(d.y, n * 16 * 64, (n + 1) * 16 * 64); };
    std::size_t nGood = 0;
    while (nGood < 10 && row(decode, nGood) == row(whole, nGood))
        ++nGood;
    EXPECT_GE(nGood, 3u);
    EXPECT_LE(nGood, 8u);
    for (std::size_t n = nGood + 2; n < 10; ++n)
        EXPECT_EQ(row(decode, n), row(decode, nGood + 1)) << "row " << n;
    // Of the last rows, all but the first block is what the row of the break shows.
    const Bytes broken = row(decode, nGood), last = row(decode, 9);
    for (std::size_t i = 0; i < last.size(); ++i) {
        const bool bFirstBlock = i % 64 < 8 && i / 64 < 8;
        ASSERT_EQ(last[i], bFirstBlock ? 128 : broken[i]) << i;
    }
    // Without the marker the same rows are written, and the status tells.
    const Decode exhausted(jpeg);
    EXPECT_EQ(exhausted.eData, JPEG_BUFFER_EXHAUSTED);
    EXPECT_EQ(row(exhausted, 0), row(whole, 0));
}

// A destination that does not fit is refused; a pair of colours without conversion leaves it untouched.
TEST(JpegDecoder, DestinationsThatAreNotWritten) {
    const Bytes jpeg = Encode(Recipe{});
    struct Row {
        const char* szName;
        bool bNull;
        int nWidth;
        JpegColor eColor;
        JpegStatus eWanted;
    };
    const Row aRows[] = {{"no memory", true, 32, JC_YCBCR420_PLANAR, JPEG_INTERNAL_ERROR},
                         {"another width", false, 33, JC_YCBCR420_PLANAR, JPEG_INTERNAL_ERROR},
                         {"rows too short for pixels", false, 32, JC_BGR, JPEG_INTERNAL_ERROR},
                         {"no such pair", false, 32, JC_GRAY, JPEG_OK}};
    for (const Row& row : aRows) {
        Bytes memory(32 * 32 * 3, 0x77);
        const Decode decode(jpeg, row.bNull ? nullptr : memory.data(), row.nWidth, 3, row.eColor);
        EXPECT_EQ(decode.eData, row.eWanted) << row.szName;
        EXPECT_EQ(memory, Bytes(32 * 32 * 3, 0x77)) << row.szName;
    }
}

// Progressive frames: every script of scans gives the picture of the sequential frame with the same
// coefficients, and what is damaged, cut off or out of bounds is refused.
struct Script {
    const char* szName;
    bool bSeparateDc;
    int nDcBits;             // bits left to later DC scans
    int nAcBits;             // and to later AC scans
    std::vector<int> aBands; // first coefficient of each AC band
};

const Script kScripts[] = {
    {"spectral selection", false, 0, 0, {1, 2, 6, 20}},
    {"one band for each component", true, 0, 0, {1}},
    {"one refinement", false, 1, 1, {1, 6}},
    {"bit by bit", true, 3, 4, {1, 9}},
};

std::vector<Scan> Scans(const Script& script, int nComponents) {
    std::vector<Scan> scans;
    const auto dc = [&](int nAh, int nAl) {
        std::vector<int> all;
        for (int c = 0; c < nComponents; ++c) {
            all.push_back(c);
            if (script.bSeparateDc)
                scans.push_back({{c}, 0, 0, nAh, nAl});
        }
        if (!script.bSeparateDc)
            scans.push_back({all, 0, 0, nAh, nAl});
    };
    const auto ac = [&](int nAh, int nAl) {
        for (int c = nComponents - 1; c >= 0; --c) {
            for (std::size_t i = 0; i < script.aBands.size(); ++i) {
                const int nEnd = i + 1 < script.aBands.size() ? script.aBands[i + 1] - 1 : 63;
                scans.push_back({{c}, script.aBands[i], nEnd, nAh, nAl});
            }
        }
    };
    dc(0, script.nDcBits);
    ac(0, script.nAcBits);
    for (int n = script.nAcBits; n > 0; --n)
        ac(n, n - 1);
    for (int n = script.nDcBits; n > 0; --n)
        dc(n, n - 1);
    return scans;
}

struct Shape {
    int nComponents, nH, nV;
};
constexpr Shape kShapes[] = {{1, 1, 1}, {3, 1, 1}, {3, 2, 1}, {3, 2, 2}};

using ProgressiveLevels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, ProgressiveLevels, EveryKernelLevel(), KernelLevelName);

// The sequential frame of the same picture has the same coefficients, so the planes agree to the byte. What
// the other library makes of them agrees within the transforms' tolerance.
TEST_P(ProgressiveLevels, EveryScriptGivesTheSequentialPicture) {
    const std::pair<int, int> aSizes[] = {{1, 1}, {2, 3}, {8, 8}, {9, 17}, {16, 16}, {31, 7}, {101, 67}};
    for (const Shape& shape : kShapes) {
        for (const auto& [w, h] : aSizes) {
            for (const int nRestart : {0, 1, 5}) {
                Recipe recipe{.nWidth = w,
                              .nHeight = h,
                              .nComponents = shape.nComponents,
                              .nH = shape.nH,
                              .nV = shape.nV,
                              .nQuality = 92,
                              .nRestartInterval = nRestart,
                              .nSeed = static_cast<unsigned>(w)};
                const Bytes plain = Encode(recipe);
                const Decode sequential(plain);
                ASSERT_EQ(sequential.eData, JPEG_OK);
                const auto raw = DecodeRaw(plain);
                for (const Script& script : kScripts) {
                    recipe.script = Scans(script, shape.nComponents);
                    const Decode picture(Encode(recipe));
                    const std::string name = recipe.Name() + " " + script.szName;
                    ASSERT_EQ(picture.eHeader, JPEG_OK) << name;
                    ASSERT_EQ(picture.eData, JPEG_OK) << name;
                    ASSERT_TRUE(picture.SamePlanes(sequential)) << name;
                    for (int i = 0; i < w * h; ++i)
                        ASSERT_LE(std::abs(picture.y[i] - raw[0].At(i % w, i / w)), 1) << name;
                    const int wc = shape.nV == 2 ? w / 2 : 0;
                    for (int i = 0; i < wc * (h / 2); ++i)
                        ASSERT_LE(std::abs(picture.cb[i] - raw[1].At(i % wc, i / wc)), 1) << name;
                }
            }
        }
    }
}

// Scans of many times what is taken in at once: blocks lie across the seams.
TEST_P(ProgressiveLevels, LongScansGiveTheSequentialPicture) {
    for (const unsigned nSeed : {1u, 2u, 3u}) {
        Recipe recipe{.nWidth = 640, .nHeight = 480, .nQuality = 96, .nSeed = nSeed};
        const Decode sequential(Encode(recipe));
        ASSERT_EQ(sequential.eData, JPEG_OK);
        recipe.bProgressive = true;
        const Bytes jpeg = Encode(recipe);
        ASSERT_GT(jpeg.size(), 200000u);
        const Decode picture(jpeg);
        ASSERT_EQ(picture.eData, JPEG_OK);
        ASSERT_TRUE(picture.SamePlanes(sequential));
    }
}

Bytes Sample() {
    return Encode({.nWidth = 40, .nHeight = 40, .nRestartInterval = 3, .bProgressive = true});
}

// Offsets of the scans' markers, and the end-of-image marker's behind them.
std::vector<std::size_t> ScanOffsets(const Bytes& jpeg) {
    std::vector<std::size_t> offsets;
    for (std::size_t i = 2; i + 1 < jpeg.size(); ++i) {
        if (jpeg[i] == 0xFF && (jpeg[i + 1] == kSos || jpeg[i + 1] == 0xD9))
            offsets.push_back(i);
    }
    return offsets;
}

TEST_P(ProgressiveLevels, EveryTruncationIsRefused) {
    const Bytes jpeg = Sample();
    const Decode whole(jpeg);
    ASSERT_EQ(whole.eData, JPEG_OK);
    for (std::size_t n = 0; n < jpeg.size(); ++n) {
        const Bytes cut = Part(jpeg, 0, n);
        const Decode picture(cut);
        ASSERT_TRUE(picture.eHeader != JPEG_OK || picture.eData != JPEG_OK) << "cut " << n;
        // Whole but for its last marker: the status tells, the picture is there.
        if (n + 2 == jpeg.size()) {
            EXPECT_EQ(picture.eData, JPEG_BUFFER_EXHAUSTED);
            EXPECT_EQ(picture.y, whole.y);
        }
    }
}

// Through the facade, with edges, odd numbers of blocks, resampling and restarts.
using AboveLevelZero = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, AboveLevelZero, KernelLevelsAboveZero(), KernelLevelName);

TEST_P(AboveLevelZero, WholePicturesAreThoseOfLevelZero) {
    const auto decode = [](const Bytes& jpeg) {
        Bytes planes(3 * 120 * 120, 0xEE);
        EXPECT_EQ(DecodeJpegYV12(jpeg.data(), Size(jpeg), planes.data(), 120, planes.data() + 120 * 120, 60,
                                 planes.data() + 2 * 120 * 120, 60),
                  0);
        return planes;
    };
    for (int n = 0; n < 60; ++n) {
        const Recipe recipe{.nWidth = 17 + n * 13 % 100,
                            .nHeight = 9 + n * 29 % 100,
                            .nComponents = n % 4 == 3 ? 1 : 3,
                            .nH = n % 4 == 0 ? 1 : 2,
                            .nV = n % 4 == 2 ? 2 : 1,
                            .nQuality = 30 + n * 7 % 71,
                            .nRestartInterval = n % 3 == 0 ? n % 7 : 0,
                            .bOptimised = n % 5 == 0};
        const Bytes jpeg = Encode(recipe);
        EXPECT_EQ(decode(jpeg), AtLevelZero([&] { return decode(jpeg); })) << recipe.Name();
    }
}

Bytes SpectralSample() {
    return Encode({.script = Scans(kScripts[0], 3)});
}

// 8192 x 8192: refused before the memory of the coefficients is asked for.
TEST(JpegProgressive, HugePicturesOfNothingAreRefused) {
    Bytes jpeg = SpectralSample();
    const std::size_t n = FindMarker(jpeg, kSof2);
    std::ranges::copy(Bytes{0x20, 0, 0x20, 0}, &jpeg[n + 5]);
    EXPECT_EQ(Decode(jpeg).eData, JPEG_INTERNAL_ERROR);
    jpeg[n + 11] = 0x11; // 4:4:4, whose coefficients are beyond the limit for any data
    jpeg.insert(jpeg.end() - 2, 1 << 19, 0);
    EXPECT_EQ(Decode(jpeg).eData, JPEG_NOT_SUPPORTED);
}

// A stream that leaves its AC scans out shows its DC coefficients: flat blocks of 8x8.
TEST(JpegProgressive, ScansLeftOutLeaveTheRest) {
    Bytes jpeg = SpectralSample();
    const Decode whole(jpeg);
    const auto offsets = ScanOffsets(jpeg);
    // Tables stand between the scans; the search above would not have met one of them inside the data.
    jpeg.erase(jpeg.begin() + offsets[1], jpeg.end() - 2);
    const Decode dc(jpeg);
    ASSERT_EQ(dc.eData, JPEG_OK);
    for (std::size_t i = 0; i < dc.y.size(); ++i)
        ASSERT_EQ(dc.y[i], dc.y[i / 256 * 256 + i % 32 / 8 * 8]) << i;
    int nDifference = 0;
    for (std::size_t i = 0; i < 64; ++i) {
        const std::size_t at = i / 8 * 32 + i % 8;
        nDifference += whole.y[at] - dc.y[at];
    }
    EXPECT_LT(std::abs(nDifference), 64 * 2) << "the mean of a block stays";
}

// However many scans and tables come, the picture is made once, at the end and with the tables of the last
// scan. Made earlier, it would spoil the rest of its own stream, over which it lies here.
TEST(JpegProgressive, IsPaintedOnce) {
    Bytes painted = Encode({.nWidth = 32, .nHeight = 32, .nComponents = 1, .bProgressive = true});
    Bytes jpeg(painted.begin(), painted.end() - 2);
    const auto table = [](std::uint8_t nStep) {
        Bytes steps(65, nStep);
        steps[0] = 0;
        return Segment(kDqt, steps);
    };
    Append(jpeg, table(3));
    const std::size_t nPicture = jpeg.size();
    for (int i = 0; i < 3; ++i) {
        Append(jpeg, EndOfBandTable());
        Append(jpeg, Segment(kSos, {1, 1, 0, 1, 63, 0x10}));
        Append(jpeg, Bytes(200)); // corrections of nothing
        Append(jpeg, table(i < 2 ? 3 : 200));
    }
    Append(jpeg, {0xFF, 0xD9});
    Append(jpeg, Bytes(32 * 32)); // the picture reaches beyond the stream's end
    std::fill_n(&At(painted, kDqt, 5), 64, std::uint8_t{3});

    std::uint8_t* const pPicture = &jpeg[nPicture];
    EXPECT_EQ(Decode(jpeg, pPicture, 32, 1, JC_GRAY).eData, JPEG_OK);
    EXPECT_EQ(Bytes(pPicture, pPicture + 32 * 32), Decode(painted).y);
}

} // namespace
