// The primary decoder: what it reads from headers, which streams it refuses and with what status, and what
// damage to the data costs.

#include "image/Decoding.h"
#include "image/JpegSamples.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace {

using namespace samples;

constexpr std::uint8_t kSof0 = 0xC0, kDht = 0xC4, kSos = 0xDA, kDqt = 0xDB, kDri = 0xDD, kCom = 0xFE;
constexpr std::uint8_t kApp0 = 0xE0, kApp14 = 0xEE;

// Byte nOffset of a segment, counted from its marker's 0xFF.
std::uint8_t& At(Bytes& jpeg, std::uint8_t nMarker, std::size_t nOffset) {
    return jpeg[FindMarker(jpeg, nMarker) + nOffset];
}

using Edit = std::function<void(Bytes&)>;

// Bytes from that one on.
Edit Set(std::uint8_t nMarker, std::size_t nOffset, const Bytes& values) {
    return [=](Bytes& jpeg) { std::ranges::copy(values, &At(jpeg, nMarker, nOffset)); };
}

Edit Before(std::uint8_t nMarker, const Bytes& piece) {
    return [=](Bytes& jpeg) { Insert(jpeg, FindMarker(jpeg, nMarker), piece); };
}

Edit Without(std::uint8_t nMarker) {
    return [=](Bytes& jpeg) { Remove(jpeg, nMarker); };
}

Edit Be(const Bytes& stream) {
    return [=](Bytes& jpeg) { jpeg = stream; };
}

// Cuts behind so many bytes of the scan header.
Edit CutInScan(std::size_t nBytes) {
    return [=](Bytes& jpeg) { jpeg.resize(FindMarker(jpeg, kSos) + nBytes); };
}

// A segment of the stream once more in front of the end.
Edit Again(std::uint8_t nMarker, int nTimes = 1) {
    return [=](Bytes& jpeg) {
        for (int i = 0; i < nTimes; ++i)
            Insert(jpeg, jpeg.size() - 2, SegmentOf(jpeg, nMarker));
    };
}

// A table whose codes of one length, and one more, are as many as said.
Bytes Dht(std::uint8_t nTcTh, std::size_t nLength, std::uint8_t nCodes, std::size_t nValues,
          std::uint8_t nOfNext = 0) {
    Bytes content(17 + nValues);
    content[0] = nTcTh;
    content[nLength] = nCodes;
    content[nLength + 1] = nOfNext;
    return Segment(kDht, content);
}

struct Doctored {
    const char* szName;
    Edit edit;
    JpegStatus eHeader;
    JpegStatus eData = JPEG_OK; // where the header is good
};

const Doctored kDoctored[] = {
    // Markers and lengths.
    {"Untouched", [](Bytes&) {}, JPEG_OK},
    {"Empty", Be({}), JPEG_BUFFER_EXHAUSTED},
    {"NoMarkers", Be(Bytes(100, 0x55)), JPEG_BUFFER_EXHAUSTED},
    {"EndBeforeScan", Be({0xFF, 0xD8, 0xFF, 0xD9}), JPEG_BUFFER_EXHAUSTED},
    {"PaddingBeforeMarkers",
     [](Bytes& j) {
         for (const std::uint8_t n : {kSos, kSof0, kDqt})
             Insert(j, FindMarker(j, n), {0xFF, 0xFF, 0xFF});
     },
     JPEG_OK},
    {"RubbishBetweenSegments", Before(kSof0, {0x12, 0x34, 0xFF, 0x00, 0x56}), JPEG_OK},
    {"UnknownSegments",
     [](Bytes& j) {
         for (const int n : {0xCC, 0xDC, 0xE5, 0xF3})
             Insert(j, FindMarker(j, kSof0), Segment(static_cast<std::uint8_t>(n), {1, 2, 3}));
     },
     JPEG_OK},
    {"LengthAtTheEnd", Be({0xFF, 0xD8, 0xFF, 0xE5, 0x00, 0x02}), JPEG_BUFFER_EXHAUSTED},
    {"LengthBelowTwo", Before(kSof0, {0xFF, 0xE5, 0x00, 0x01, 0x00}), JPEG_BAD_SEGMENT_LENGTH},
    {"SegmentPastTheEnd", Before(kSof0, {0xFF, 0xE5, 0xFF, 0xFF}), JPEG_BUFFER_EXHAUSTED},
    {"RestartBeforeScan", Before(kSof0, {0xFF, 0xD3}), JPEG_INTERNAL_ERROR},
    {"NoEndOfImage", [](Bytes& j) { j.erase(j.end() - 2, j.end()); }, JPEG_OK, JPEG_BUFFER_EXHAUSTED},
    // Frame header.
    {"Arithmetic", Set(kSof0, 1, {0xC9}), JPEG_NOT_SUPPORTED},
    {"Lossless", Set(kSof0, 1, {0xC3}), JPEG_NOT_SUPPORTED},
    {"ExtendedSequential", Set(kSof0, 1, {0xC1}), JPEG_OK},
    {"Precision12", Set(kSof0, 4, {12}), JPEG_NOT_SUPPORTED},
    {"FiveComponents", Set(kSof0, 9, {5}), JPEG_BAD_FRAME_SEGMENT},
    {"NoComponents", Set(kSof0, 9, {0}), JPEG_BAD_FRAME_SEGMENT},
    {"CountAgainstLength", Set(kSof0, 9, {2}), JPEG_BAD_SEGMENT_LENGTH},
    {"FactorZero", Set(kSof0, 11, {0x02}), JPEG_BAD_FRAME_SEGMENT},
    {"ZeroHeight", Set(kSof0, 5, {0, 0}), JPEG_BAD_FRAME_SEGMENT},
    {"ZeroWidth", Set(kSof0, 7, {0, 0}), JPEG_BAD_FRAME_SEGMENT},
    {"SideAboveLimit", Set(kSof0, 5, {0xFF, 0xFF}), JPEG_NOT_SUPPORTED},
    {"AreaAboveLimit", Set(kSof0, 5, {0x20, 0, 0x20, 1}), JPEG_NOT_SUPPORTED}, // 8193 x 8192
    {"SameIdentifierTwice", Set(kSof0, 13, {1}), JPEG_BAD_FRAME_SEGMENT},
    {"QuantSelector4", Set(kSof0, 12, {4}), JPEG_BAD_QUANT_SEGMENT},
    {"SecondFrameHeader", [](Bytes& j) { Insert(j, FindMarker(j, kSof0), SegmentOf(j, kSof0)); },
     JPEG_BAD_FRAME_SEGMENT},
    {"SecondFrameHeaderBehindTheScan", Again(kSof0), JPEG_OK, JPEG_BAD_FRAME_SEGMENT},
    {"FrameHeaderMissing", Without(kSof0), JPEG_BAD_COMPONENT_ID},
    {"Sampling411", Set(kSof0, 11, {0x41}), JPEG_OK, JPEG_NOT_SUPPORTED},
    {"Sampling440", Set(kSof0, 11, {0x12}), JPEG_OK, JPEG_NOT_SUPPORTED},
    // Tables.
    {"QuantIdentifier4", Set(kDqt, 4, {4}), JPEG_BAD_QUANT_SEGMENT},
    {"QuantTooLong", Before(kSof0, Segment(kDqt, Bytes(67))), JPEG_BAD_SEGMENT_LENGTH},
    {"QuantTooShort", Before(kSof0, Segment(kDqt, Bytes(60))), JPEG_BAD_SEGMENT_LENGTH},
    {"QuantMissing", Without(kDqt), JPEG_OK, JPEG_BAD_QUANT_SEGMENT},
    {"HuffmanMissing", Without(kDht), JPEG_OK, JPEG_BAD_HUFFMAN_SEGMENT},
    {"HuffmanIdentifier4", Set(kDht, 4, {4}), JPEG_BAD_HUFFMAN_SEGMENT},
    {"HuffmanMoreThan256", Before(kSof0, Dht(0, 8, 255, 257, 2)), JPEG_BAD_HUFFMAN_SEGMENT},
    {"HuffmanMoreThanItHolds", Before(kSof0, Dht(0, 8, 10, 9)), JPEG_BAD_HUFFMAN_SEGMENT},
    {"HuffmanLeftOver", Before(kSof0, Dht(0, 8, 10, 12)), JPEG_BAD_SEGMENT_LENGTH},
    {"HuffmanOverfullUnused", Before(kSos, Dht(3, 1, 3, 3)), JPEG_OK},
    {"HuffmanOverfullUsed", Before(kSos, Dht(0, 1, 3, 3)), JPEG_OK, JPEG_BAD_HUFFMAN_SEGMENT},
    {"RestartIntervalLength", Before(kSos, Segment(kDri, {0, 1, 2})), JPEG_BAD_SEGMENT_LENGTH},
    {"RestartIntervalZero", Before(kSos, Segment(kDri, {0, 0})), JPEG_OK},
    // Scan header.
    {"ScanOfNone", Set(kSos, 4, {0}), JPEG_BAD_SCAN_SEGMENT},
    {"ScanOfFive", Set(kSos, 4, {5}), JPEG_BAD_SCAN_SEGMENT},
    {"ScanOfTwo", Set(kSos, 4, {2}), JPEG_NOT_SUPPORTED},
    {"ScanLength", Set(kSos, 3, {13}), JPEG_BAD_SEGMENT_LENGTH},
    {"ScanOfAnUnknown", Set(kSos, 5, {77}), JPEG_BAD_COMPONENT_ID},
    {"ScanNamesOneTwice", Set(kSos, 7, {1}), JPEG_BAD_SCAN_SEGMENT},
    {"DcSelector4", Set(kSos, 6, {0x40}), JPEG_BAD_HUFFMAN_SEGMENT},
    {"AcSelector4", Set(kSos, 6, {0x04}), JPEG_BAD_HUFFMAN_SEGMENT},
    {"DcSelectorUnset", Set(kSos, 6, {0x30}), JPEG_OK, JPEG_BAD_HUFFMAN_SEGMENT},
    {"ScanHeaderCut", CutInScan(10), JPEG_BUFFER_EXHAUSTED},
    {"DataCutAtOnce", CutInScan(14), JPEG_OK, JPEG_BUFFER_EXHAUSTED},
    {"OnePassTooMany", Again(kSos, kJpegMaxSequentialScans), JPEG_OK, JPEG_NOT_SUPPORTED},
};

TEST(JpegDecoder, DoctoredStreamsHaveTheirStatus) {
    const Bytes sample = Encode(Recipe{});
    for (const Doctored& row : kDoctored) {
        Bytes jpeg = sample;
        row.edit(jpeg);
        const Bytes exact(jpeg); // no spare capacity behind the last byte
        const Decode decode(exact);
        EXPECT_EQ(decode.eHeader, row.eHeader) << row.szName;
        if (row.eHeader == JPEG_OK && decode.eHeader == JPEG_OK) {
            EXPECT_EQ(decode.eData, row.eData) << row.szName;
        }
    }
}

TEST(JpegDecoder, OnlySequentialFramesNeedAllComponentsInAScan) {
    EXPECT_EQ(Decode(Encode({.bSeparateScans = true})).eHeader, JPEG_NOT_SUPPORTED);
    const Decode progressive(Encode({.bProgressive = true}));
    EXPECT_TRUE(progressive.decoder.m_bProgressive);
    EXPECT_EQ(progressive.eData, JPEG_OK);
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
