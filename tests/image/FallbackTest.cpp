// The fallback engine: its record, the streams that only it reads against another decoder, its facade.

#include "image/CodecParts.h"
#include "image/JpegSamples.h"
#include "image/KernelLevel.h"
#include "image/ijl/Ijl.h"
#include "image/kernels/Colour.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <functional>

namespace {

using namespace samples;

// A record over one stream, from ijlInit to ijlFree, and the image that it fills.
struct Engine {
    explicit Engine(const Bytes& jpeg) : stream(jpeg) {
        EXPECT_EQ(ijlInit(&record), IJL_OK);
        record.JPGBytes = stream.data();
        record.JPGSizeBytes = Size(stream);
    }
    ~Engine() { EXPECT_EQ(ijlFree(&record), IJL_OK); }

    IJLERR Params() { return ijlRead(&record, IJL_JBUFF_READPARAMS); }
    IJLERR Image(IJL_COLOR eColor, int nChannels, int nPad = 0, bool bBottomUp = false) {
        record.DIBWidth = static_cast<std::uint32_t>(nWidth > 0 ? nWidth : record.JPGWidth);
        const int nRows = nHeight > 0 ? nHeight : record.JPGHeight;
        record.DIBHeight = bBottomUp ? -nRows : nRows;
        record.DIBChannels = static_cast<std::uint32_t>(nChannels);
        record.DIBColor = eColor;
        record.DIBPadBytes = static_cast<std::uint32_t>(nPad);
        const std::size_t nStep = record.DIBWidth * record.DIBChannels + record.DIBPadBytes;
        image.assign(nStep * nRows, 0xEE);
        record.DIBBytes = image.data();
        return ijlRead(&record, IJL_JBUFF_READWHOLEIMAGE);
    }
    // Parameters, then the whole image, without pad bytes.
    Bytes Whole(IJL_COLOR eColor, int nChannels) {
        EXPECT_EQ(Params(), IJL_OK);
        EXPECT_EQ(Image(eColor, nChannels), IJL_OK);
        return image;
    }

    Bytes stream;
    int nWidth = 0, nHeight = 0; // of the image, when they are not the stream's
    Bytes image;
    JPEG_CORE_PROPERTIES record;
};

Recipe Make(int nComponents, int nH, int nV, int nWidth = 75, int nHeight = 43) {
    return {.nWidth = nWidth, .nHeight = nHeight, .nComponents = nComponents, .nH = nH, .nV = nV};
}

Recipe MakeRgb(int nWidth = 75, int nHeight = 43) {
    return {.nWidth = nWidth, .nHeight = nHeight, .nH = 1, .nV = 1, .bRgb = true};
}

// Components at full resolution, each sample repeated over what it covers, within 1 of the other decoder's.
void ExpectSamples(const Recipe& recipe, const Bytes& jpeg, const Bytes& image) {
    const std::vector<Plane> coded = DecodeRaw(jpeg);
    const int n = recipe.nComponents;
    const int nMaxH = std::max(recipe.nH, n > 1 ? recipe.nOtherH : 1);
    const int nMaxV = std::max(recipe.nV, n > 1 ? recipe.nOtherV : 1);
    int nWorst = 0;
    for (int y = 0; y < recipe.nHeight; ++y) {
        for (int x = 0; x < recipe.nWidth; ++x) {
            for (int c = 0; c < n; ++c) {
                const int nH = c == 0 ? recipe.nH : recipe.nOtherH, nV = c == 0 ? recipe.nV : recipe.nOtherV;
                const int nWanted = coded[c].At(x * nH / nMaxH, y * nV / nMaxV);
                nWorst = std::max(nWorst, std::abs(image[(y * recipe.nWidth + x) * n + c] - nWanted));
            }
        }
    }
    EXPECT_LE(nWorst, 1);
}

// A pixel from level-shifted samples that nothing has clamped, by the documented arithmetic.
std::array<std::uint8_t, 3> ToPixel(int nY, int nCb, int nCr, bool bBlueFirst) {
    const int anColour[] = {nY + (91881 * nCr >> 16) + 128, nY + ((-22554 * nCb - 46802 * nCr) >> 16) + 128,
                            nY + (116130 * nCb >> 16) + 128};
    std::array<std::uint8_t, 3> pixel{};
    for (std::size_t c = 0; c < 3; ++c)
        pixel[bBlueFirst ? 2 - c : c] = static_cast<std::uint8_t>(std::clamp(anColour[c], 0, 255));
    return pixel;
}

// Pixels from samples of which none was clamped.
Bytes ToPixels(const Bytes& yCbCr, bool bBlueFirst) {
    Bytes pixels;
    for (std::size_t i = 0; i < yCbCr.size(); i += 3) {
        const auto pixel = ToPixel(yCbCr[i] - 128, yCbCr[i + 1] - 128, yCbCr[i + 2] - 128, bBlueFirst);
        pixels.insert(pixels.end(), pixel.begin(), pixel.end());
    }
    return pixels;
}

// A stream of flat blocks with these samples, level-shifted, none between -63 and 63 but 0 and none beyond
// 255: one MCU, in one scan or in one for each component.
Bytes FlatStream(const Recipe& layout, const int (&anSamples)[3], bool bSeparate) {
    Bytes jpeg = {0xFF, 0xD8};
    Bytes steps(65, 8); // of a flat block, so that the coefficient is the sample
    steps[0] = 0;
    Append(jpeg, Segment(0xDB, steps));
    // DC: 00 no value, 01 seven bits, 10 eight; AC: 0 the end of the block.
    Append(jpeg, Segment(0xC4, {0, 0, 3, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 7, 8}));
    Append(jpeg, Segment(0xC4, {0x10, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0}));
    const auto factors = [&](std::size_t c) {
        return static_cast<std::uint8_t>(c == 0 ? layout.nH << 4 | layout.nV
                                                : layout.nOtherH << 4 | layout.nOtherV);
    };
    Append(jpeg, Segment(0xC0, {8, 0, static_cast<std::uint8_t>(layout.nHeight), 0,
                                static_cast<std::uint8_t>(layout.nWidth), 3, 1, factors(0), 0, 2, factors(1),
                                0, 3, factors(2), 0}));
    std::string bits;
    const auto flush = [&] {
        for (bits.resize((bits.size() + 7) / 8 * 8, '1'); !bits.empty(); bits.erase(0, 8)) {
            jpeg.push_back(static_cast<std::uint8_t>(std::stoi(bits.substr(0, 8), nullptr, 2)));
            if (jpeg.back() == 0xFF)
                jpeg.push_back(0);
        }
    };
    if (!bSeparate)
        Append(jpeg, Segment(0xDA, {3, 1, 0, 2, 0, 3, 0, 0, 63, 0}));
    for (std::size_t c = 0; c < 3; ++c) {
        if (bSeparate)
            Append(jpeg, Segment(0xDA, {1, static_cast<std::uint8_t>(c + 1), 0, 0, 63, 0}));
        const int nSize = anSamples[c] == 0 ? 0 : std::abs(anSamples[c]) < 128 ? 7 : 8;
        bits += nSize == 0 ? "00" : nSize == 7 ? "01" : "10";
        const int nRaw = anSamples[c] < 0 ? anSamples[c] + (1 << nSize) - 1 : anSamples[c];
        for (int i = nSize - 1; i >= 0; --i)
            bits += static_cast<char>('0' + (nRaw >> i & 1));
        bits += "0";
        for (int n = (factors(c) >> 4) * (factors(c) & 15); n > 1; --n)
            bits += "000";
        if (bSeparate)
            flush();
    }
    flush();
    Append(jpeg, {0xFF, 0xD9});
    return jpeg;
}

struct Layout {
    Recipe Sampled(int nWidth = 75, int nHeight = 43) const {
        Recipe recipe = Make(3, nH, nV, nWidth, nHeight);
        recipe.nOtherH = nOtherH;
        recipe.nOtherV = nOtherV;
        return recipe;
    }
    const char* szName;
    int nH, nV, nOtherH, nOtherV;
    int nSubsampling, nFast; // what the record says; fast routine into BGR
};
const Layout kLayouts[] = {{"S444", 1, 1, 1, 1, 0, 1},         {"S422", 2, 1, 1, 1, 2, 2},
                           {"S420", 2, 2, 1, 1, 1, 3},         {"S411", 4, 1, 1, 1, 255, 0},
                           {"S440", 1, 2, 1, 1, 255, 0},       {"ThreeByOne", 3, 1, 1, 1, 255, 0},
                           {"SmallLuma", 1, 1, 2, 2, 255, 0},  {"Crossed", 2, 1, 1, 2, 255, 0},
                           {"NearlyFull", 2, 2, 2, 1, 255, 0}, {"SmallLumaRows", 1, 1, 1, 2, 255, 0}};

class Fallback : public testing::TestWithParam<Layout> {};
INSTANTIATE_TEST_SUITE_P(All, Fallback, testing::ValuesIn(kLayouts),
                         [](const auto& layout) { return layout.param.szName; });

TEST_P(Fallback, EverySamplingAndOrderOfScans) {
    struct Variant {
        const char* szName;
        std::vector<Scan> script;
        bool bProgressive;
        int nRestartInterval;
    };
    const std::vector<Scan> separate = {{{0}, 0, 63, 0, 0}, {{2}, 0, 63, 0, 0}, {{1}, 0, 63, 0, 0}};
    const std::vector<Scan> paired = {{{0}, 0, 63, 0, 0}, {{1, 2}, 0, 63, 0, 0}};
    const Variant aVariants[] = {{"one scan", {}, false, 0},
                                 {"one scan, restarts", {}, false, 3},
                                 {"separate", separate, false, 0},
                                 {"separate, restarts", separate, false, 5},
                                 {"paired", paired, false, 2},
                                 {"progressive", {}, true, 0},
                                 {"progressive, restarts", {}, true, 4}};
    for (const Variant& variant : aVariants) {
        for (const auto& [w, h] : {std::pair{75, 43}, {1, 1}, {64, 32}}) {
            SCOPED_TRACE(variant.szName);
            Recipe recipe = GetParam().Sampled(w, h);
            recipe.nQuality = 97; // no sample overshoots
            recipe.nRestartInterval = variant.nRestartInterval;
            recipe.bProgressive = variant.bProgressive;
            recipe.script = variant.script;
            const Bytes jpeg = Encode(recipe);
            Engine engine(jpeg);
            const Bytes yCbCr = engine.Whole(IJL_YCBCR, 3);
            ExpectSamples(recipe, jpeg, yCbCr);
            ASSERT_TRUE(std::ranges::none_of(yCbCr, [](int n) { return n == 0 || n == 255; }));
            EXPECT_EQ(engine.record.JPGSubsampling, GetParam().nSubsampling);
            EXPECT_EQ(engine.record.DIBSubsampling, 2);
            engine.record.DIBSubsampling = 0;
            EXPECT_EQ(engine.Image(IJL_BGR, 3), IJL_OK);
            EXPECT_EQ(engine.record.jprops.fast_processing, GetParam().nFast);
            EXPECT_EQ(engine.image, ToPixels(yCbCr, true));
            EXPECT_EQ(engine.Image(IJL_RGB, 3), IJL_OK);
            EXPECT_EQ(engine.image, ToPixels(yCbCr, false));
            EXPECT_EQ(engine.Image(IJL_G, 1), IJL_OK);
            for (std::size_t i = 0; i < engine.image.size(); ++i)
                ASSERT_EQ(engine.image[i], yCbCr[3 * i]) << i;
        }
    }
}

// Colours come from samples before any clamp, in every routine.
TEST_P(Fallback, ColoursOfSamplesBeyondTheirRange) {
    Recipe layout = GetParam().Sampled();
    layout.nWidth = 8 * std::max(layout.nH, layout.nOtherH);
    layout.nHeight = 8 * std::max(layout.nV, layout.nOtherV);
    for (const auto& [nY, nCb, nCr] :
         {std::array{-200, 0, 100}, {200, 200, -200}, {-250, 130, -130}, {255, -255, 255}}) {
        for (const bool bSeparate : {false, true}) {
            const Bytes jpeg = FlatStream(layout, {nY, nCb, nCr}, bSeparate);
            for (const auto& [eColor, nChannels] : {std::pair{IJL_BGR, 3}, {IJL_RGB, 3}, {IJL_RGBA_FPX, 4}}) {
                const Bytes image = Engine(jpeg).Whole(eColor, nChannels);
                const auto pixel = ToPixel(nY, nCb, nCr, eColor == IJL_BGR);
                for (std::size_t i = 0; i < image.size(); i += nChannels)
                    ASSERT_TRUE(std::equal(pixel.begin(), pixel.end(), &image[i])) << nChannels << ' ' << i;
            }
            const Bytes grey = Engine(jpeg).Whole(IJL_G, 1);
            EXPECT_EQ(grey, Bytes(grey.size(), static_cast<std::uint8_t>(std::clamp(nY + 128, 0, 255))));
        }
    }
}

TEST_P(Fallback, RowsPadBytesAndImagesOfAnotherSize) {
    const Bytes stream = Encode(GetParam().Sampled());
    for (const auto& [eColor, nChannels] :
         {std::pair{IJL_BGR, 3}, {IJL_YCBCR, 3}, {IJL_G, 1}, {IJL_RGBA_FPX, 4}}) {
        Engine engine(stream);
        const Bytes whole = engine.Whole(eColor, nChannels);
        for (const auto& [w, h] : {std::pair{75, 43}, {10, 9}, {91, 50}}) {
            for (const bool bBottomUp : {false, true}) {
                engine.nWidth = w;
                engine.nHeight = h;
                ASSERT_EQ(engine.Image(eColor, nChannels, 3, bBottomUp), IJL_OK);
                const int nStep = w * nChannels + 3;
                for (int i = 0; i < static_cast<int>(engine.image.size()); ++i) {
                    const int nColumn = i % nStep, y = bBottomUp ? h - 1 - i / nStep : i / nStep;
                    const bool bShared = nColumn < std::min(w, 75) * nChannels && y < 43;
                    ASSERT_EQ(engine.image[i], bShared ? whole[y * 75 * nChannels + nColumn] : 0xEE)
                        << nChannels << ' ' << w << ' ' << bBottomUp << ' ' << i;
                }
            }
        }
    }
}

using FallbackLevels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, FallbackLevels, KernelLevelsAboveZero(), KernelLevelName);

// Of samples in their range and, with other steps than they were made with, far beyond it.
TEST_P(FallbackLevels, PicturesAreThoseOfLevelZero) {
    for (const Layout& layout : kLayouts) {
        Bytes jpeg = Encode(layout.Sampled());
        for (const bool bBeyond : {false, true}) {
            if (bBeyond)
                std::fill_n(&jpeg[FindMarker(jpeg, 0xDB) + 5], 64, std::uint8_t{255});
            for (const auto& [eColor, nChannels] :
                 {std::pair{IJL_BGR, 3}, {IJL_RGB, 3}, {IJL_RGBA_FPX, 4}, {IJL_G, 1}}) {
                const auto whole = [&, e = eColor, n = nChannels] { return Engine(jpeg).Whole(e, n); };
                EXPECT_EQ(whole(), AtLevelZero(whole)) << layout.szName << ' ' << eColor;
            }
        }
    }
}

TEST(FallbackStream, RgbIsReadAsItIs) {
    for (const int nScans : {0, 1, 2}) {
        Recipe recipe = MakeRgb();
        recipe.nH = nScans == 2 ? 2 : 1;
        recipe.bSeparateScans = nScans == 1;
        recipe.bProgressive = nScans == 2;
        const Bytes jpeg = Encode(recipe);
        Engine engine(jpeg);
        const Bytes rgb = engine.Whole(IJL_RGB, 3);
        EXPECT_EQ(engine.record.JPGColor, IJL_RGB);
        ExpectSamples(recipe, jpeg, rgb);
        ASSERT_EQ(engine.Image(IJL_BGR, 3), IJL_OK);
        for (std::size_t i = 0; i < rgb.size(); i += 3)
            ASSERT_TRUE(std::equal(&rgb[i], &rgb[i] + 3, std::reverse_iterator(&engine.image[i] + 3))) << i;
        EXPECT_EQ(engine.Image(IJL_G, 1), IJL_INVALID_JPEG_PROPERTIES) << "no luma in it";
    }
}

TEST(FallbackStream, GreyIsRepeated) {
    Recipe recipe = Make(1, 2, 2); // factors of a lone component say nothing
    const Bytes jpeg = Encode(recipe);
    recipe.nH = recipe.nV = 1;
    Engine engine(jpeg);
    const Bytes grey = engine.Whole(IJL_G, 1);
    EXPECT_EQ(engine.record.JPGChannels, 1);
    EXPECT_EQ(engine.record.JPGColor, IJL_G);
    ExpectSamples(recipe, jpeg, grey);
    for (const auto& [eColor, nChannels] : {std::pair{IJL_BGR, 3}, {IJL_RGBA_FPX, 4}}) {
        ASSERT_EQ(engine.Image(eColor, nChannels), IJL_OK);
        for (int i = 0; i < static_cast<int>(engine.image.size()); ++i)
            ASSERT_EQ(engine.image[i], i % nChannels == 3 ? 255 : grey[i / nChannels]);
    }
    // A whole image read at once, with the defaults of the record.
    Engine once(jpeg);
    once.nWidth = recipe.nWidth;
    once.nHeight = recipe.nHeight;
    EXPECT_EQ(once.Image(IJL_BGR, 3), IJL_OK);
    EXPECT_EQ(once.record.JPGColor, IJL_G);
}

TEST(FallbackStream, FourComponents) {
    Recipe recipe = Make(4, 1, 1);
    recipe.nQuality = 97;
    const Bytes jpeg = Encode(recipe);
    Engine engine(jpeg);
    ASSERT_EQ(engine.Params(), IJL_OK);
    EXPECT_EQ(engine.record.JPGColor, IJL_RGBA_FPX);
    EXPECT_EQ(engine.record.DIBColor, IJL_RGBA_FPX);
    EXPECT_EQ(engine.record.DIBChannels, 4u);
    ASSERT_EQ(engine.Image(IJL_RGBA_FPX, 4), IJL_OK);
    ExpectSamples(recipe, jpeg, engine.image);
    const Bytes plain = engine.image;

    Bytes transformed = jpeg;
    transformed[FindMarker(jpeg, 0xEE) + 15] = 2;
    Engine other(transformed);
    const Bytes converted = other.Whole(IJL_RGBA_FPX, 4);
    EXPECT_EQ(other.record.JPGColor, IJL_YCBCRA_FPX);
    for (std::size_t i = 0; i < plain.size(); i += 4) {
        const Bytes pixel = ToPixels({plain[i], plain[i + 1], plain[i + 2]}, false);
        ASSERT_TRUE(std::equal(pixel.begin(), pixel.end(), &converted[i]) &&
                    converted[i + 3] == plain[i + 3]);
    }
}

// A frame of 255 components, one flat block each.
TEST(FallbackStream, AsManyComponentsAsAHeaderCanName) {
    Bytes frame = {8, 0, 8, 0, 8, 255}, jpeg = {0xFF, 0xD8};
    Append(jpeg, Segment(0xDB, Bytes(65, 1)));
    jpeg[jpeg.size() - 65] = 0;
    for (const int nClass : {0, 0x10}) {
        Bytes table(1 + 16 + 2);
        table[0] = static_cast<std::uint8_t>(nClass);
        table[2] = 2; // two codes of two bits: 00 none, 01 seven bits
        table[18] = 7;
        Append(jpeg, Segment(0xC4, table));
    }
    for (int c = 0; c < 255; ++c)
        Append(frame, {static_cast<std::uint8_t>(c), 0x11, 0});
    Append(jpeg, Segment(0xC0, frame));
    for (int c = 0; c < 255; ++c) {
        Append(jpeg, Segment(0xDA, {1, static_cast<std::uint8_t>(c), 0, 0, 63, 0}));
        // 01, then c/4 + 64 in seven bits (a value of 64 to 127), then 00 for the end of the block, then 1s.
        const int nBits = (1 << 14) | ((c / 4 + 64) << 7) | 0x1F;
        Append(jpeg, {static_cast<std::uint8_t>(nBits >> 8), static_cast<std::uint8_t>(nBits)});
    }
    Append(jpeg, {0xFF, 0xD9});
    Engine engine(jpeg);
    ASSERT_EQ(engine.Params(), IJL_OK);
    EXPECT_EQ(engine.record.JPGChannels, 255);
    EXPECT_EQ(engine.record.JPGColor, IJL_OTHER);
    ASSERT_EQ(engine.Image(IJL_OTHER, 255), IJL_OK);
    for (int i = 0; i < 64 * 255; ++i)
        ASSERT_EQ(engine.image[i], 128 + (i % 255 / 4 + 64 + 4) / 8) << i;
}

TEST(FallbackRecord, IsCheckedBeforeAnyWork) {
    const Bytes jpeg = Encode(Make(3, 2, 2));
    using Record = JPEG_CORE_PROPERTIES;
    struct Row {
        const char* szName;
        IJLERR eWanted;
        std::function<void(Record&)> change;
    };
    const IJLERR eBad = IJL_INVALID_JPEG_PROPERTIES;
    const Row aRows[] = {
        {"as it is", IJL_OK, [](Record&) {}},
        {"no image", eBad, [](Record& r) { r.DIBBytes = nullptr; }},
        {"no width", eBad, [](Record& r) { r.DIBWidth = 0; }},
        {"too wide", eBad, [](Record& r) { r.DIBWidth = 65536; }},
        {"too high", eBad, [](Record& r) { r.DIBHeight = 65536; }},
        {"too high the other way", eBad, [](Record& r) { r.DIBHeight = -65536; }},
        {"no rows", IJL_OK, [](Record& r) { r.DIBHeight = 0; }},
        {"negative pad", eBad, [](Record& r) { r.DIBPadBytes = ~0u; }},
        {"no channels", eBad, [](Record& r) { r.DIBChannels = 0; }},
        {"too many channels", eBad, [](Record& r) { r.DIBChannels = 256; }},
        {"subsampling of pixels", IJL_UNSUPPORTED_SUBSAMPLING, [](Record& r) { r.DIBSubsampling = 2; }},
        {"unknown subsampling", IJL_UNSUPPORTED_SUBSAMPLING, [](Record& r) { r.DIBSubsampling = 1; }},
        {"no stream", eBad, [](Record& r) { r.JPGBytes = nullptr; }},
        {"empty stream", eBad, [](Record& r) { r.JPGSizeBytes = 0; }},
        {"negative stream", eBad, [](Record& r) { r.JPGSizeBytes = -5; }},
        {"no components", eBad, [](Record& r) { r.JPGChannels = 0; }},
        {"too many components", eBad,
         [](Record& r) { r.JPGChannels = 257, r.JPGColor = r.DIBColor = IJL_OTHER; }},
        {"two grey channels", eBad, [](Record& r) { r.DIBColor = IJL_G, r.DIBChannels = 2; }},
        {"colours to others", eBad, [](Record& r) { r.DIBColor = IJL_OTHER; }},
        {"grey of three", eBad, [](Record& r) { r.JPGColor = IJL_G; }},
        {"BGR in a stream", eBad, [](Record& r) { r.JPGColor = IJL_BGR; }},
        {"components as they are", IJL_OK, [](Record& r) { r.JPGColor = r.DIBColor = IJL_OTHER; }},
        {"as if RGB", IJL_OK, [](Record& r) { r.JPGColor = IJL_RGB; }},
        {"another count than the stream's", eBad,
         [](Record& r) {
             r.JPGChannels = 4;
             r.JPGColor = r.DIBColor = IJL_RGBA_FPX, r.DIBChannels = 4, r.DIBWidth = 8;
         }},
        {"unknown transform", eBad, [](Record& r) { r.jprops.dcttype = 2; }},
        {"working part without an image", eBad, [](Record& r) { r.UseJPEGPROPERTIES = 1; }},
    };
    for (const Row& row : aRows) {
        SCOPED_TRACE(row.szName);
        Engine engine(jpeg);
        ASSERT_EQ(engine.Params(), IJL_OK);
        ASSERT_EQ(engine.Image(IJL_BGR, 3), IJL_OK);
        Record& record = engine.record;
        if (std::string(row.szName).find("working") == 0)
            record.jprops.DIBBytes = nullptr;
        row.change(record);
        EXPECT_EQ(ijlRead(&record, IJL_JBUFF_READWHOLEIMAGE), row.eWanted);
    }
    for (int nMode = -2; nMode <= 22; ++nMode) {
        Engine engine(jpeg);
        const IJLERR eWanted = nMode == 1 ? IJL_OK : eBad; // 3 has no image here
        EXPECT_EQ(ijlRead(&engine.record, static_cast<IJLIOTYPE>(nMode)), eWanted) << nMode;
    }
}

TEST(FallbackStream, CommentsGoIntoTheCallersBuffer) {
    Bytes jpeg = Encode(Make(1, 1, 1));
    Insert(jpeg, 2, Segment(0xFE, {'a', 'b', 'c'}));
    Engine engine(jpeg);
    char szRoom[3];
    engine.record.jprops.jpeg_comment = szRoom;
    for (const int nRoom : {2, 3}) {
        engine.record.jprops.jpeg_comment_size = nRoom;
        EXPECT_EQ(engine.Params(), nRoom < 3 ? IJL_ERR_COM_BUFFER : IJL_OK);
    }
    EXPECT_EQ(std::string(szRoom, 3), "abc");
    EXPECT_EQ(engine.record.jprops.jpeg_comment_length, 3);
}

// The facade: blocks of what the primary decoder turns down, with the documented conversion of the engine's
// own pixels. That refuses a picture of one column, which has no chroma and no stride for it.
TEST(FallbackFacade, BlocksOfOtherStreams) {
    struct Row {
        const char* szName;
        bool bRgb, bSeparate, bProgressive;
        int nWidth, nHeight;
    };
    for (const Row& row : {Row{"RGB", true, false, false, 64, 48},
                           {"separate", false, true, false, 101, 33},
                           {"progressive RGB", true, false, true, 40, 41},
                           {"one pixel", true, false, false, 1, 1},
                           {"one column", true, false, false, 1, 40},
                           {"one row", true, false, false, 40, 1}}) {
        SCOPED_TRACE(row.szName);
        const int w = row.nWidth, h = row.nHeight, nFactor = row.bRgb ? 1 : 2;
        const Bytes jpeg = Encode({.nWidth = w,
                                   .nHeight = h,
                                   .nH = nFactor,
                                   .nV = nFactor,
                                   .bProgressive = row.bProgressive,
                                   .bSeparateScans = row.bSeparate,
                                   .bRgb = row.bRgb});
        const Bytes bgr = Engine(jpeg).Whole(IJL_BGR, 3);
        Bytes wanted(w * h * 3 / 2); // an odd last row or column stays as it was: zero
        std::uint8_t* const apPlanes[] = {wanted.data(), wanted.data() + w * h,
                                          wanted.data() + w * h + w * h / 4};
        const std::int32_t anSteps[] = {w, w / 2, w / 2};
        ASSERT_EQ(ippiRGBToYUV420_8u_C3P3R(bgr.data(), 3 * w, apPlanes, anSteps, {w, h}), w == 1 ? -14
                                                                                          : (w | h) % 2 != 0
                                                                                              ? 35
                                                                                              : 0);
        const FrameBlock block = DecodeToFrameBlock(jpeg.data(), Size(jpeg));
        ASSERT_EQ(static_cast<bool>(block), w > 1);
        if (block) {
            EXPECT_EQ(block.size(), 40 + wanted.size());
            EXPECT_TRUE(std::equal(wanted.begin(), wanted.end(), block.Planes()));
        }
    }
}

// The example of the arithmetic, through the facade: a luma of 7, where clamped samples would give 15.
TEST(FallbackFacade, ConvertsSamplesBeforeTheyAreClamped) {
    const Bytes jpeg = FlatStream({.nWidth = 8, .nHeight = 8, .nH = 1, .nV = 1}, {-200, 0, 100}, true);
    const FrameBlock block = DecodeToFrameBlock(jpeg.data(), Size(jpeg));
    ASSERT_TRUE(block);
    EXPECT_EQ(std::count(block.Planes(), block.Planes() + 64, 7), 64);
}

// Scans that code nothing: many of a small picture are taken, of a large one as many as its blocks allow.
TEST(FallbackStream, ScansOfNothingAreCounted) {
    for (const int nSide : {64, 2048}) {
        Recipe recipe = MakeRgb(nSide, nSide);
        recipe.bProgressive = true;
        recipe.nQuality = 1;
        Bytes jpeg = Encode(recipe);
        jpeg.erase(jpeg.end() - 2, jpeg.end());
        for (int i = 0; i < (nSide == 64 ? 150 : 24); ++i) {
            const std::uint8_t nComponent = static_cast<std::uint8_t>("RGB"[i % 3]);
            Append(jpeg, EndOfBandTable());
            Append(jpeg, Segment(0xDA, {1, nComponent, 0, 63, 63, 0}));
            Append(jpeg, Bytes(16));
        }
        Append(jpeg, {0xFF, 0xD9});
        Engine engine(jpeg);
        EXPECT_EQ(engine.Params(), IJL_OK);
        EXPECT_EQ(engine.Image(IJL_BGR, 3), nSide == 64 ? IJL_OK : IJL_ERR_COMP);
    }
}

// With one identifier for all components each scan is the first one's; none brings the others.
TEST(FallbackStream, AScanWithoutDataTakesWhatItsComponentHad) {
    Recipe recipe = MakeRgb();
    recipe.bSeparateScans = true;
    Bytes jpeg = Encode(recipe);
    const std::size_t nFrame = FindMarker(jpeg, 0xC0), nScan = FindMarker(jpeg, 0xDA);
    jpeg[nFrame + 13] = jpeg[nFrame + 16] = jpeg[nFrame + 10];
    const Bytes header = Part(jpeg, nScan, nScan + 10);
    jpeg.erase(std::search(jpeg.begin() + static_cast<std::ptrdiff_t>(nScan) + 2, jpeg.end(), header.begin(),
                           header.begin() + 2),
               jpeg.end());
    Append(jpeg, header);
    Append(jpeg, {0xFF, 0xD9});
    EXPECT_EQ(Engine(jpeg).Whole(IJL_RGB, 3), Bytes(75 * 43 * 3, 128));
}

TEST(FallbackFacade, ResultCodes) {
    const Bytes rgb = Encode(MakeRgb()), cmyk = Encode(Make(4, 1, 1)), colour = Encode(Make(3, 2, 2)),
                row = Encode(MakeRgb(75, 1));
    std::int32_t nWidth = 0, nHeight = 0;
    ImageKind eKind{};
    EXPECT_EQ(ProbeJpegFallback(rgb.data(), Size(rgb), nWidth, nHeight, eKind), 0);
    EXPECT_EQ(nWidth, 75);
    EXPECT_EQ(nHeight, 43);
    EXPECT_EQ(eKind, ImageKindYV12);
    nWidth = 7;
    EXPECT_EQ(ProbeJpegFallback(cmyk.data(), Size(cmyk), nWidth, nHeight, eKind), -1);
    EXPECT_EQ(ProbeJpegFallback(nullptr, 0, nWidth, nHeight, eKind), -1);
    EXPECT_EQ(nWidth, 7);

    Bytes y(80 * 43, 0xEE);
    EXPECT_EQ(DecodeJpegGreyFallback(rgb.data(), Size(rgb), y.data(), -1), -5);
    EXPECT_EQ(DecodeJpegGreyFallback(rgb.data(), Size(rgb), y.data(), 80), -1) << "RGB has no luma plane";
    EXPECT_EQ(DecodeJpegGreyFallback(colour.data(), Size(colour), y.data(), 74), -1) << "narrower than a row";
    EXPECT_EQ(DecodeJpegGrey(colour.data(), Size(colour), y.data(), 80), 0) << "the Y plane of colour";
    const Plane luma = DecodeRaw(colour)[0];
    for (int i = 0; i < 80 * 43; ++i)
        ASSERT_NEAR(y[i], i % 80 < 75 ? luma.At(i % 80, i / 80) : 0xEE, i % 80 < 75 ? 1 : 0);

    Bytes c(37 * 21);
    EXPECT_EQ(DecodeJpegYV12(rgb.data(), Size(rgb), y.data(), 75, c.data(), 0, c.data(), 37), -1);
    EXPECT_EQ(DecodeJpegYV12(cmyk.data(), Size(cmyk), y.data(), 75, c.data(), 37, c.data(), 37), -1);
    EXPECT_EQ(DecodeJpegYV12(rgb.data(), Size(rgb) - 2, y.data(), 75, c.data(), 37, c.data(), 37), -1);
    EXPECT_EQ(DecodeJpegYV12(rgb.data(), Size(rgb), y.data(), 75, c.data(), 37, c.data(), 37), 0);
    EXPECT_EQ(DecodeJpegYV12(row.data(), Size(row), y.data(), 75, nullptr, 37, nullptr, 37), 0)
        << "no chroma";
}

} // namespace
