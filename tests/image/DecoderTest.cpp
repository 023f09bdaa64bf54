// The primary decoder: what it reads from headers, which streams it refuses and with what status, and what
// damage to the data costs.

#include "image/JpegSamples.h"
#include "image/jpegdec/JpegDecoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <functional>

namespace {

using samples::Bytes;
using samples::FindMarker;
using samples::Marking;
using samples::Recipe;
using samples::Segment;

constexpr std::uint8_t kSof0 = 0xC0, kSof2 = 0xC2, kDht = 0xC4, kSos = 0xDA, kDqt = 0xDB, kDri = 0xDD,
                       kCom = 0xFE;
constexpr std::uint8_t kApp0 = 0xE0, kApp14 = 0xEE;

// A decoder with its stream and planes of the stream's size.
struct Decode {
    explicit Decode(const Bytes& jpeg) {
        EXPECT_EQ(decoder.SetSource(jpeg.data(), static_cast<std::int32_t>(jpeg.size())), JPEG_OK);
        eHeader = decoder.ReadHeader(nWidth, nHeight, nChannels, eColor, eSampling);
        if (eHeader != JPEG_OK)
            return;
        const auto nPixels = static_cast<std::size_t>(nWidth) * static_cast<std::size_t>(nHeight);
        y.resize(nPixels);
        cb.resize(nPixels / 4);
        cr.resize(nPixels / 4);
        planes = {y.data(), cb.data(), cr.data(), nWidth, nWidth / 2, nWidth / 2};
        EXPECT_EQ(nChannels == 1
                      ? decoder.SetDestination(y.data(), nWidth, nWidth, nHeight, 1, JC_GRAY)
                      : decoder.SetDestination(&planes, nWidth, nWidth, nHeight, 3, JC_YCBCR420_PLANAR),
                  JPEG_OK);
        eData = decoder.ReadData();
    }

    CJPEGDecoder decoder;
    std::int32_t nWidth = 0, nHeight = 0, nChannels = 0;
    JpegColor eColor = JC_UNKNOWN;
    JpegSampling eSampling = JS_OTHER;
    JpegStatus eHeader = JPEG_OK;
    JpegStatus eData = JPEG_OK;
    Bytes y, cb, cr;
    PlanarDestination planes{};
};

void Insert(Bytes& jpeg, std::size_t nAt, const Bytes& piece) {
    jpeg.insert(jpeg.begin() + static_cast<std::ptrdiff_t>(nAt), piece.begin(), piece.end());
}

// Takes a whole segment out.
void Remove(Bytes& jpeg, std::uint8_t nMarker) {
    const std::size_t nAt = FindMarker(jpeg, nMarker);
    const std::size_t nLength = 2 + (std::size_t{jpeg[nAt + 2]} << 8 | jpeg[nAt + 3]);
    jpeg.erase(jpeg.begin() + static_cast<std::ptrdiff_t>(nAt),
               jpeg.begin() + static_cast<std::ptrdiff_t>(nAt + nLength));
}

// Byte nOffset of a segment, counted from its marker's 0xFF.
std::uint8_t& At(Bytes& jpeg, std::uint8_t nMarker, std::size_t nOffset) {
    return jpeg[FindMarker(jpeg, nMarker) + nOffset];
}

std::function<void(Bytes&)> Set(std::uint8_t nMarker, std::size_t nOffset, int nValue) {
    return [=](Bytes& jpeg) { At(jpeg, nMarker, nOffset) = static_cast<std::uint8_t>(nValue); };
}

std::function<void(Bytes&)> Before(std::uint8_t nMarker, const Bytes& piece) {
    return [=](Bytes& jpeg) { Insert(jpeg, FindMarker(jpeg, nMarker), piece); };
}

Bytes DhtContent(int nTcTh, std::size_t nCodesOfLength8, std::size_t nValues) {
    Bytes content(17 + nValues);
    content[0] = static_cast<std::uint8_t>(nTcTh);
    content[8] = static_cast<std::uint8_t>(nCodesOfLength8);
    return content;
}

struct Doctored {
    const char* szName;
    std::function<void(Bytes&)> edit;
    JpegStatus eHeader;
    JpegStatus eData = JPEG_OK; // where the header is good
};

const Doctored kDoctored[] = {
    // Markers and lengths.
    {"Untouched", [](Bytes&) {}, JPEG_OK},
    {"Empty", [](Bytes& j) { j.clear(); }, JPEG_BUFFER_EXHAUSTED},
    {"NoMarkers", [](Bytes& j) { j.assign(100, 0x55); }, JPEG_BUFFER_EXHAUSTED},
    {"EndBeforeScan",
     [](Bytes& j) {
         j = {0xFF, 0xD8, 0xFF, 0xD9};
     },
     JPEG_BUFFER_EXHAUSTED},
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
    {"LengthAtTheEnd", [](Bytes& j) { j = {0xFF, 0xD8, 0xFF, 0xE5, 0x00, 0x02}; }, JPEG_BUFFER_EXHAUSTED},
    {"LengthBelowTwo", Before(kSof0, {0xFF, 0xE5, 0x00, 0x01, 0x00}), JPEG_BAD_SEGMENT_LENGTH},
    {"SegmentPastTheEnd", Before(kSof0, {0xFF, 0xE5, 0xFF, 0xFF}), JPEG_BUFFER_EXHAUSTED},
    {"RestartBeforeScan", Before(kSof0, {0xFF, 0xD3}), JPEG_INTERNAL_ERROR},
    {"NoEndOfImage", [](Bytes& j) { j.erase(j.end() - 2, j.end()); }, JPEG_OK, JPEG_BUFFER_EXHAUSTED},
    // Frame header.
    {"Arithmetic", Set(kSof0, 1, 0xC9), JPEG_NOT_SUPPORTED},
    {"Lossless", Set(kSof0, 1, 0xC3), JPEG_NOT_SUPPORTED},
    {"ExtendedSequential", Set(kSof0, 1, 0xC1), JPEG_OK},
    {"Precision12", Set(kSof0, 4, 12), JPEG_NOT_SUPPORTED},
    {"FiveComponents", Set(kSof0, 9, 5), JPEG_BAD_FRAME_SEGMENT},
    {"NoComponents", Set(kSof0, 9, 0), JPEG_BAD_FRAME_SEGMENT},
    {"CountAgainstLength", Set(kSof0, 9, 2), JPEG_BAD_SEGMENT_LENGTH},
    {"FactorZero", Set(kSof0, 11, 0x02), JPEG_BAD_FRAME_SEGMENT},
    {"ZeroHeight", [](Bytes& j) { At(j, kSof0, 5) = At(j, kSof0, 6) = 0; }, JPEG_BAD_FRAME_SEGMENT},
    {"ZeroWidth", [](Bytes& j) { At(j, kSof0, 7) = At(j, kSof0, 8) = 0; }, JPEG_BAD_FRAME_SEGMENT},
    {"SideAboveLimit", [](Bytes& j) { At(j, kSof0, 5) = At(j, kSof0, 6) = 0xFF; }, JPEG_NOT_SUPPORTED},
    {"AreaAboveLimit", // 8193 x 8192
     [](Bytes& j) {
         At(j, kSof0, 5) = At(j, kSof0, 7) = 0x20;
         At(j, kSof0, 6) = 0;
         At(j, kSof0, 8) = 1;
     },
     JPEG_NOT_SUPPORTED},
    {"SameIdentifierTwice", Set(kSof0, 13, 1), JPEG_BAD_FRAME_SEGMENT},
    {"QuantSelector4", Set(kSof0, 12, 4), JPEG_BAD_QUANT_SEGMENT},
    {"SecondFrameHeader",
     [](Bytes& j) {
         const std::size_t n = FindMarker(j, kSof0);
         Insert(j, n,
                Bytes(j.begin() + static_cast<std::ptrdiff_t>(n),
                      j.begin() + static_cast<std::ptrdiff_t>(n) + 19));
     },
     JPEG_BAD_FRAME_SEGMENT},
    {"SecondFrameHeaderBehindTheScan",
     [](Bytes& j) {
         const std::size_t n = FindMarker(j, kSof0);
         Insert(j, j.size() - 2,
                Bytes(j.begin() + static_cast<std::ptrdiff_t>(n),
                      j.begin() + static_cast<std::ptrdiff_t>(n) + 19));
     },
     JPEG_OK, JPEG_BAD_FRAME_SEGMENT},
    {"FrameHeaderMissing", [](Bytes& j) { Remove(j, kSof0); }, JPEG_BAD_COMPONENT_ID},
    {"Sampling411", Set(kSof0, 11, 0x41), JPEG_OK, JPEG_NOT_SUPPORTED},
    {"Sampling440", Set(kSof0, 11, 0x12), JPEG_OK, JPEG_NOT_SUPPORTED},
    // Tables.
    {"QuantIdentifier4", Set(kDqt, 4, 4), JPEG_BAD_QUANT_SEGMENT},
    {"QuantTooLong", Before(kSof0, Segment(kDqt, Bytes(67))), JPEG_BAD_SEGMENT_LENGTH},
    {"QuantTooShort", Before(kSof0, Segment(kDqt, Bytes(60))), JPEG_BAD_SEGMENT_LENGTH},
    {"QuantMissing", [](Bytes& j) { Remove(j, kDqt); }, JPEG_OK, JPEG_BAD_QUANT_SEGMENT},
    {"HuffmanMissing", [](Bytes& j) { Remove(j, kDht); }, JPEG_OK, JPEG_BAD_HUFFMAN_SEGMENT},
    {"HuffmanIdentifier4", Set(kDht, 4, 4), JPEG_BAD_HUFFMAN_SEGMENT},
    {"HuffmanMoreThan256",
     [](Bytes& j) {
         Bytes content = DhtContent(0, 255, 257);
         content[9] = 2;
         Insert(j, FindMarker(j, kSof0), Segment(kDht, content));
     },
     JPEG_BAD_HUFFMAN_SEGMENT},
    {"HuffmanMoreThanItHolds", Before(kSof0, Segment(kDht, DhtContent(0, 10, 9))), JPEG_BAD_HUFFMAN_SEGMENT},
    {"HuffmanLeftOver", Before(kSof0, Segment(kDht, DhtContent(0, 10, 12))), JPEG_BAD_SEGMENT_LENGTH},
    {"HuffmanOverfullUnused",
     [](Bytes& j) {
         Bytes content = DhtContent(3, 0, 3);
         content[1] = 3;
         Insert(j, FindMarker(j, kSos), Segment(kDht, content));
     },
     JPEG_OK},
    {"HuffmanOverfullUsed",
     [](Bytes& j) {
         Bytes content = DhtContent(0, 0, 3);
         content[1] = 3;
         Insert(j, FindMarker(j, kSos), Segment(kDht, content));
     },
     JPEG_OK, JPEG_BAD_HUFFMAN_SEGMENT},
    {"RestartIntervalLength", Before(kSos, Segment(kDri, {0, 1, 2})), JPEG_BAD_SEGMENT_LENGTH},
    {"RestartIntervalZero", Before(kSos, Segment(kDri, {0, 0})), JPEG_OK},
    // Scan header.
    {"ScanOfNone", Set(kSos, 4, 0), JPEG_BAD_SCAN_SEGMENT},
    {"ScanOfFive", Set(kSos, 4, 5), JPEG_BAD_SCAN_SEGMENT},
    {"ScanOfTwo", Set(kSos, 4, 2), JPEG_NOT_SUPPORTED},
    {"ScanLength", Set(kSos, 3, 13), JPEG_BAD_SEGMENT_LENGTH},
    {"ScanOfAnUnknown", Set(kSos, 5, 77), JPEG_BAD_COMPONENT_ID},
    {"ScanNamesOneTwice", Set(kSos, 7, 1), JPEG_BAD_SCAN_SEGMENT},
    {"DcSelector4", Set(kSos, 6, 0x40), JPEG_BAD_HUFFMAN_SEGMENT},
    {"AcSelector4", Set(kSos, 6, 0x04), JPEG_BAD_HUFFMAN_SEGMENT},
    {"DcSelectorUnset", Set(kSos, 6, 0x30), JPEG_OK, JPEG_BAD_HUFFMAN_SEGMENT},
    {"ScanHeaderCut", [](Bytes& j) { j.resize(FindMarker(j, kSos) + 10); }, JPEG_BUFFER_EXHAUSTED},
    {"DataCutAtOnce", [](Bytes& j) { j.resize(FindMarker(j, kSos) + 14); }, JPEG_OK, JPEG_BUFFER_EXHAUSTED},
    {"OnePassTooMany",
     [](Bytes& j) {
         const std::size_t n = FindMarker(j, kSos);
         const Bytes header(j.begin() + static_cast<std::ptrdiff_t>(n),
                            j.begin() + static_cast<std::ptrdiff_t>(n) + 14);
         for (int i = 0; i < kJpegMaxSequentialScans; ++i)
             Insert(j, j.size() - 2, header);
     },
     JPEG_OK, JPEG_NOT_SUPPORTED},
};

TEST(JpegDecoder, DoctoredStreamsHaveTheirStatus) {
    const Bytes sample = samples::Encode(Recipe{});
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
    Recipe recipe;
    recipe.bSeparateScans = true;
    EXPECT_EQ(Decode(samples::Encode(recipe)).eHeader, JPEG_NOT_SUPPORTED);
    recipe = {};
    recipe.bProgressive = true;
    const Decode progressive(samples::Encode(recipe));
    EXPECT_EQ(progressive.eHeader, JPEG_OK);
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
        Recipe recipe;
        recipe.nComponents = row.nComponents;
        recipe.bRgb = row.bRgb;
        recipe.eMarking = row.eMarking;
        recipe.nH = recipe.nV = row.nComponents == 3 && !row.bRgb ? 2 : 1;
        Bytes jpeg = samples::Encode(recipe);
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
    Recipe recipe;
    recipe.nWidth = 37;
    recipe.nHeight = 21;
    Bytes jpeg = samples::Encode(recipe);
    Insert(jpeg, FindMarker(jpeg, kSof0), Segment(kCom, {'o', 'n', 'e'}));
    Insert(jpeg, FindMarker(jpeg, kSof0), Segment(kCom, {'t', 'w', 'o', '!'}));
    Insert(jpeg, FindMarker(jpeg, kSof0), Segment(kApp0, {'J', 'F', 'X', 'X', 0, 0x13, 9, 9}));
    Insert(jpeg, FindMarker(jpeg, kSof0), Segment(kApp14, {'A', 'd', 'o', 'b', 'e', 0, 100, 1, 2, 3, 4, 1}));
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
    Recipe recipe;
    recipe.nComponents = 1;
    recipe.nH = recipe.nV = 1;
    Bytes jpeg = samples::Encode(recipe);
    const Bytes plain = Decode(jpeg).y;
    At(jpeg, kSof0, 11) = 0x22;
    const Decode decode(jpeg);
    EXPECT_EQ(decode.eSampling, JS_444);
    EXPECT_EQ(decode.y, plain);
}

TEST(JpegDecoder, KeepsTheLowByteOfWideQuantisers) {
    Bytes jpeg = samples::Encode(Recipe{});
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
    Bytes jpeg = samples::Encode(Recipe{});
    const Decode once(jpeg);
    const std::size_t n = FindMarker(jpeg, kSos);
    Insert(jpeg, jpeg.size() - 2, Bytes(jpeg.begin() + static_cast<std::ptrdiff_t>(n), jpeg.end() - 2));
    const Decode twice(jpeg);
    EXPECT_EQ(twice.eData, JPEG_OK);
    EXPECT_EQ(twice.y, once.y);
    EXPECT_EQ(twice.cb, once.cb);
}

TEST(JpegDecoder, RestartNumbersDoNotCount) {
    Recipe recipe;
    recipe.nRestartInterval = 1;
    Bytes jpeg = samples::Encode(recipe);
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
    Recipe recipe;
    recipe.nWidth = 64;
    recipe.nHeight = 160;
    Bytes jpeg = samples::Encode(recipe);
    const Decode whole(jpeg);
    jpeg.resize(jpeg.size() * 3 / 5);
    Bytes cut = jpeg;
    Insert(cut, cut.size(), {0xFF, 0xD9});
    const Decode decode(cut);
    EXPECT_EQ(decode.eData, JPEG_OK);
    const auto row = [](const Decode& d, std::ptrdiff_t n) {
        return Bytes(d.y.begin() + n * 16 * 64, d.y.begin() + (n + 1) * 16 * 64);
    };
    std::ptrdiff_t nGood = 0;
    while (nGood < 10 && row(decode, nGood) == row(whole, nGood))
        ++nGood;
    EXPECT_GE(nGood, 3);
    EXPECT_LE(nGood, 8);
    for (std::ptrdiff_t n = nGood + 2; n < 10; ++n)
        EXPECT_EQ(row(decode, n), row(decode, nGood + 1)) << "row " << n;
    // Of the last rows, all but the first block is what the row of the break shows.
    const Bytes broken = row(decode, nGood), last = row(decode, 9);
    for (std::size_t i = 0; i < last.size(); ++i) {
        const bool bFirstBlock = i % 64 < 8 && i / 64 < 8;
        EXPECT_EQ(last[i], bFirstBlock ? 128 : broken[i]) << i;
        if (last[i] != (bFirstBlock ? 128 : broken[i]))
            break;
    }
    // Without the marker the same rows are written, and the status tells.
    const Decode exhausted(jpeg);
    EXPECT_EQ(exhausted.eData, JPEG_BUFFER_EXHAUSTED);
    EXPECT_EQ(row(exhausted, 0), row(whole, 0));
}

// A destination that does not fit the stream is refused; a pair of colours without conversion leaves it
// untouched.
TEST(JpegDecoder, DestinationsThatAreNotWritten) {
    const Bytes jpeg = samples::Encode(Recipe{});
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
        EXPECT_EQ(decoder.SetSource(jpeg.data(), static_cast<int>(jpeg.size())), JPEG_OK);
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
