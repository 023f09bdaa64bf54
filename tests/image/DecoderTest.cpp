// The primary decoder: what it reads from headers, and what damage to the data costs.

#include "image/Decoding.h"
#include "image/JpegSamples.h"

#include <gtest/gtest.h>

#include <algorithm>

namespace {

using namespace samples;

constexpr std::uint8_t kSof0 = 0xC0, kSos = 0xDA, kDqt = 0xDB, kCom = 0xFE, kApp0 = 0xE0, kApp14 = 0xEE;

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

TEST(JpegDecoder, OneComponentHasNoFactors) {
    Bytes jpeg = Encode({.nComponents = 1, .nH = 1, .nV = 1});
    const Bytes plain = Decode(jpeg).y;
    At(jpeg, kSof0, 11) = 0x22;
    const Decode decode(jpeg);
    EXPECT_EQ(decode.eSampling, JS_444);
    EXPECT_EQ(decode.y, plain);
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

// A second pass repaints the picture; its predictors start anew.
TEST(JpegDecoder, SecondScanRepaints) {
    Bytes jpeg = Encode(Recipe{});
    const Decode once(jpeg);
    Insert(jpeg, jpeg.size() - 2, Part(jpeg, FindMarker(jpeg, kSos), jpeg.size() - 2));
    const Decode twice(jpeg);
    EXPECT_EQ(twice.eData, JPEG_OK);
    EXPECT_TRUE(twice.SamePlanes(once));
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

// A destination that does not fit the stream is refused; a pair of colours without conversion leaves it
// untouched.
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
        CJPEGDecoder decoder;
        std::int32_t w, h, n;
        JpegColor eColor;
        JpegSampling eSampling;
        EXPECT_EQ(decoder.SetSource(jpeg.data(), Size(jpeg)), JPEG_OK);
        EXPECT_EQ(decoder.ReadHeader(w, h, n, eColor, eSampling), JPEG_OK);
        Bytes memory(32 * 32 * 3, 0x77);
        EXPECT_EQ(
            decoder.SetDestination(row.bNull ? nullptr : memory.data(), row.nWidth, 32, 32, 3, row.eColor),
            JPEG_OK);
        EXPECT_EQ(decoder.ReadData(), row.eWanted) << row.szName;
        EXPECT_EQ(memory, Bytes(32 * 32 * 3, 0x77)) << row.szName;
    }
}

} // namespace
