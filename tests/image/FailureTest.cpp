// The codec's failures at its door: whichever engine a stream meets, what the probe says, whether there is a
// frame, and how little a stream that promises much may cost.

#include "image/ImageCodec.h"
#include "image/JpegSamples.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <functional>

namespace {

using samples::Bytes;
using samples::FindMarker;
using samples::Recipe;
using samples::Segment;

constexpr std::uint8_t kDht = 0xC4, kSos = 0xDA, kDqt = 0xDB, kApp0 = 0xE0, kApp1 = 0xE1, kCom = 0xFE;

std::int32_t Length(const Bytes& jpeg) {
    return static_cast<std::int32_t>(jpeg.size());
}

enum class Base { Sequential, Progressive, Grey, Rgb, RgbProgressive, Separate };

Bytes MakeBase(Base eBase) {
    Recipe recipe;
    recipe.nWidth = recipe.nHeight = 64;
    recipe.bProgressive = eBase == Base::Progressive || eBase == Base::RgbProgressive;
    recipe.bSeparateScans = eBase == Base::Separate;
    if (eBase == Base::Grey)
        recipe.nComponents = recipe.nH = recipe.nV = 1;
    if (eBase == Base::Rgb || eBase == Base::RgbProgressive) {
        recipe.bRgb = true;
        recipe.nH = recipe.nV = 1;
    }
    return samples::Encode(recipe);
}

std::uint8_t FrameMarker(Base eBase) {
    return eBase == Base::Progressive || eBase == Base::RgbProgressive ? 0xC2 : 0xC0;
}

using Edit = std::function<void(Bytes& jpeg, std::uint8_t nFrameMarker)>;

void Insert(Bytes& jpeg, std::size_t nAt, const Bytes& piece) {
    jpeg.insert(jpeg.begin() + static_cast<std::ptrdiff_t>(nAt), piece.begin(), piece.end());
}

// The first segment of this marker, whole.
Bytes Copy(const Bytes& jpeg, std::uint8_t nMarker) {
    const std::size_t nAt = FindMarker(jpeg, nMarker);
    const std::size_t nEnd = nAt + 2 + (std::size_t{jpeg[nAt + 2]} << 8 | jpeg[nAt + 3]);
    return {jpeg.begin() + static_cast<std::ptrdiff_t>(nAt),
            jpeg.begin() + static_cast<std::ptrdiff_t>(nEnd)};
}

// All segments of this marker in front of the first scan.
Edit Remove(std::uint8_t nMarker) {
    return [=](Bytes& jpeg, std::uint8_t) {
        for (std::size_t nAt = 2; jpeg[nAt + 1] != kSos;) {
            const auto nBytes = 2 + (std::ptrdiff_t{jpeg[nAt + 2]} << 8 | jpeg[nAt + 3]);
            const auto begin = jpeg.begin() + static_cast<std::ptrdiff_t>(nAt);
            if (jpeg[nAt + 1] == nMarker)
                jpeg.erase(begin, begin + nBytes);
            else
                nAt += static_cast<std::size_t>(nBytes);
        }
    };
}

Edit InFrame(std::size_t nOffset, std::initializer_list<std::uint8_t> bytes) {
    return [=, values = Bytes(bytes)](Bytes& jpeg, std::uint8_t nFrameMarker) {
        std::copy(values.begin(), values.end(),
                  jpeg.begin() + static_cast<std::ptrdiff_t>(FindMarker(jpeg, nFrameMarker) + nOffset));
    };
}

Edit InScan(std::size_t nOffset, std::uint8_t nValue) {
    return [=](Bytes& jpeg, std::uint8_t) { jpeg[FindMarker(jpeg, kSos) + nOffset] = nValue; };
}

Edit BeforeFrame(const Bytes& piece) {
    return
        [=](Bytes& jpeg, std::uint8_t nFrameMarker) { Insert(jpeg, FindMarker(jpeg, nFrameMarker), piece); };
}

// A table of three codes of one bit, where two have room.
Bytes OverfullTable() {
    Bytes content(17 + 3);
    content[1] = 3;
    return Segment(kDht, content);
}

Bytes TooManyCodes() {
    Bytes content(17 + 300);
    content[8] = content[9] = 150;
    return Segment(kDht, content);
}

// Takes the end-of-image marker off.
void CutEnd(Bytes& jpeg, std::uint8_t) {
    jpeg.erase(jpeg.end() - 2, jpeg.end());
}

// Ends the data of the first scan with ones, of which no code is made, and goes on with the rest of the
// stream.
void DamageData(Bytes& jpeg, std::uint8_t) {
    const std::size_t nData = FindMarker(jpeg, kSos) + 14;
    std::size_t nEnd = nData;
    while (!(jpeg[nEnd] == 0xFF && jpeg[nEnd + 1] != 0))
        ++nEnd;
    const std::size_t nFrom = nData + (nEnd - nData) / 2;
    for (std::size_t n = nFrom; n + 1 < nEnd; n += 2) {
        jpeg[n] = 0xFF;
        jpeg[n + 1] = 0x00;
    }
}

// What becomes of a stream.
enum class Frame { None, Whole, Damaged };

struct Row {
    const char* szName;
    Base eBase;
    Edit edit;
    std::int32_t nProbe;
    Frame eFrame;
};

const Row kRows[] = {
    // No header.
    {"Empty", Base::Sequential, [](Bytes& j, std::uint8_t) { j.clear(); }, -1, Frame::None},
    {"NoScan", Base::Sequential, [](Bytes& j, std::uint8_t) { j.resize(FindMarker(j, kSos)); }, -1,
     Frame::None},
    {"EndInsteadOfScan", Base::Sequential,
     [](Bytes& j, std::uint8_t) {
         j.resize(FindMarker(j, kSos));
         Insert(j, j.size(), {0xFF, 0xD9});
     },
     -1, Frame::None},
    // Kinds of frames that no engine reads.
    {"Precision12", Base::Sequential, InFrame(4, {12}), -1, Frame::None},
    {"Precision12Progressive", Base::Progressive, InFrame(4, {12}), -1, Frame::None},
    {"Lossless", Base::Sequential, InFrame(1, {0xC3}), -1, Frame::None},
    {"Hierarchical", Base::Sequential, InFrame(1, {0xC5}), -1, Frame::None},
    {"Arithmetic", Base::Sequential, InFrame(1, {0xC9}), -1, Frame::None},
    {"ArithmeticProgressive", Base::Progressive, InFrame(1, {0xCA}), -1, Frame::None},
    // Samplings: the probe takes them all, the data of a YCbCr stream is read at three of them.
    {"Sampling411", Base::Sequential, InFrame(11, {0x41}), 0, Frame::None},
    {"Sampling440", Base::Sequential, InFrame(11, {0x12}), 0, Frame::None},
    {"Sampling3x1", Base::Sequential, InFrame(11, {0x31}), 0, Frame::None},
    {"LumaSmallerThanChroma", Base::Sequential, InFrame(11, {0x11, 0x00, 0x02, 0x22}), 0, Frame::None},
    {"Sampling440Progressive", Base::Progressive, InFrame(11, {0x12}), 0, Frame::None},
    {"FactorZero", Base::Sequential, InFrame(11, {0x02}), -1, Frame::None},
    {"GreyFactorsSayNothing", Base::Grey, InFrame(11, {0x22}), 0, Frame::Whole},
    // Streams cut or damaged.
    {"NoEnd", Base::Sequential, CutEnd, 0, Frame::None},
    {"NoEndProgressive", Base::Progressive, CutEnd, 0, Frame::None},
    {"NoEndFallback", Base::Rgb, CutEnd, 0, Frame::None},
    {"Damaged", Base::Sequential, DamageData, 0, Frame::Damaged},
    {"DamagedFallback", Base::Rgb, DamageData, 0, Frame::Damaged},
    {"DamagedProgressive", Base::Progressive, DamageData, 0, Frame::None},
    // Frame headers that make no sense.
    {"ZeroWidth", Base::Sequential, InFrame(7, {0, 0}), -1, Frame::None},
    {"ZeroHeight", Base::Sequential, InFrame(5, {0, 0}), -1, Frame::None},
    {"ZeroHeightFallback", Base::Rgb, InFrame(5, {0, 0}), -1, Frame::None},
    {"TwoFrames", Base::Sequential, [](Bytes& j, std::uint8_t n) { Insert(j, FindMarker(j, n), Copy(j, n)); },
     -1, Frame::None},
    {"TwoFramesBehindTheScan", Base::Sequential,
     [](Bytes& j, std::uint8_t n) { Insert(j, j.size() - 2, Copy(j, n)); }, 0, Frame::None},
    {"NoFrame", Base::Sequential, Remove(0xC0), -1, Frame::None},
    {"FiveComponents", Base::Sequential, InFrame(9, {5}), -1, Frame::None},
    // Tables.
    {"NoQuantTable", Base::Sequential, Remove(kDqt), 0, Frame::None},
    {"NoQuantTableProgressive", Base::Progressive, Remove(kDqt), 0, Frame::None},
    {"NoHuffmanTable", Base::Sequential, Remove(kDht), 0, Frame::None},
    {"NoHuffmanTableProgressive", Base::Progressive, Remove(kDht), 0, Frame::None},
    // The fallback's probe stops where the first scan begins.
    {"NoQuantTableFallback", Base::Rgb, Remove(kDqt), 0, Frame::None},
    {"NoHuffmanTableFallback", Base::Rgb, Remove(kDht), 0, Frame::None},
    {"OverfullTable", Base::Sequential,
     [](Bytes& j, std::uint8_t) { Insert(j, FindMarker(j, kSos), OverfullTable()); }, 0, Frame::None},
    {"OverfullTableFallback", Base::Rgb,
     [](Bytes& j, std::uint8_t) { Insert(j, FindMarker(j, kSos), OverfullTable()); }, -1, Frame::None},
    {"TooManyCodes", Base::Sequential, BeforeFrame(TooManyCodes()), -1, Frame::None},
    // Selectors: what the primary engine refuses in a header, the fallback refuses in the scan.
    {"QuantSelector", Base::Sequential, InFrame(12, {4}), 0, Frame::None},
    {"QuantSelectorFallback", Base::Separate, InFrame(12, {255}), 0, Frame::None},
    {"DcSelector", Base::Sequential, InScan(6, 0xF0), 0, Frame::None},
    {"AcSelector", Base::Sequential, InScan(6, 0x04), 0, Frame::None},
    {"SelectorFallback", Base::Separate, InScan(6, 0x44), 0, Frame::None},
    {"UnknownComponent", Base::Sequential, InScan(5, 99), 0, Frame::None},
    {"QuantIdentifier", Base::Sequential, BeforeFrame(Segment(kDqt, Bytes(65, 9))), -1, Frame::None},
    // What phones, cameras and programs put into sound streams.
    {"LongComments", Base::Sequential,
     [](Bytes& j, std::uint8_t n) {
         for (const std::size_t nBytes : {std::size_t{0}, std::size_t{65533}})
             Insert(j, FindMarker(j, n), Segment(kCom, Bytes(nBytes, 0xFF)));
     },
     0, Frame::Whole},
    {"StreamInAnApplicationSegment", Base::Sequential,
     [](Bytes& j, std::uint8_t n) { Insert(j, FindMarker(j, n), Segment(kApp1, MakeBase(Base::Grey))); }, 0,
     Frame::Whole},
    {"StreamAsThumbnail", Base::Separate,
     [](Bytes& j, std::uint8_t n) {
         Bytes content{'J', 'F', 'X', 'X', 0, 0x10};
         Insert(content, 6, MakeBase(Base::Grey));
         Insert(j, FindMarker(j, n), Segment(kApp0, content));
     },
     0, Frame::Whole},
    {"Padding", Base::Sequential,
     [](Bytes& j, std::uint8_t n) {
         for (const std::uint8_t nMarker : {kSos, n, kDqt})
             Insert(j, FindMarker(j, nMarker), Bytes(5, 0xFF));
         Insert(j, j.size() - 2, Bytes(3, 0xFF));
     },
     0, Frame::Whole},
    {"PaddingProgressive", Base::Progressive,
     [](Bytes& j, std::uint8_t n) {
         for (const std::uint8_t nMarker : {kSos, n, kDqt})
             Insert(j, FindMarker(j, nMarker), Bytes(5, 0xFF));
     },
     0, Frame::Whole},
    {"BytesBehindTheEnd", Base::Sequential,
     [](Bytes& j, std::uint8_t) { Insert(j, j.size(), Bytes(100, 0xD8)); }, 0, Frame::Whole},
    {"Rgb", Base::Rgb, [](Bytes&, std::uint8_t) {}, 0, Frame::Whole},
    // Progressive streams of the fallback.
    {"RgbProgressive", Base::RgbProgressive, [](Bytes&, std::uint8_t) {}, 0, Frame::Whole},
    {"NoEndRgbProgressive", Base::RgbProgressive, CutEnd, 0, Frame::None},
    {"DamagedRgbProgressive", Base::RgbProgressive, DamageData, 0, Frame::None},
    {"Precision12RgbProgressive", Base::RgbProgressive, InFrame(4, {12}), -1, Frame::None},
    {"ZeroHeightRgbProgressive", Base::RgbProgressive, InFrame(5, {0, 0}), -1, Frame::None},
    {"NoQuantTableRgbProgressive", Base::RgbProgressive, Remove(kDqt), 0, Frame::None},
    {"NoHuffmanTableRgbProgressive", Base::RgbProgressive, Remove(kDht), 0, Frame::None},
    {"SelectorRgbProgressive", Base::RgbProgressive, InScan(6, 0x44), 0, Frame::None},
    {"OneScanAComponent", Base::Separate, [](Bytes&, std::uint8_t) {}, 0, Frame::Whole},
};

class Failures : public testing::TestWithParam<Row> {};
INSTANTIATE_TEST_SUITE_P(All, Failures, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.szName; });

TEST_P(Failures, HaveTheirOutcome) {
    const Row& row = GetParam();
    const Bytes sound = MakeBase(row.eBase);
    Bytes jpeg = sound;
    row.edit(jpeg, FrameMarker(row.eBase));
    std::int32_t nWidth = -7, nHeight = -8;
    ImageKind eKind{};
    EXPECT_EQ(ProbeJpeg(jpeg.data(), Length(jpeg), nWidth, nHeight, eKind), row.nProbe);
    if (row.nProbe != ImageOk) {
        EXPECT_EQ(nWidth, -7) << "written on success alone";
        EXPECT_EQ(nHeight, -8);
    }
    const FrameBlock block = DecodeToFrameBlock(jpeg.data(), Length(jpeg));
    ASSERT_EQ(static_cast<bool>(block), row.eFrame != Frame::None);

    // The operations on planes say the same.
    Bytes y(64 * 64), cr(32 * 32), cb(32 * 32);
    const std::int32_t nResult =
        DecodeJpegYV12(jpeg.data(), Length(jpeg), y.data(), 64, cr.data(), 32, cb.data(), 32);
    EXPECT_EQ(nResult, row.eFrame == Frame::None ? ImageUnreadable : ImageOk);
    if (row.eFrame == Frame::None)
        return;

    const FrameBlock wanted = DecodeToFrameBlock(sound.data(), Length(sound));
    ASSERT_TRUE(wanted);
    ASSERT_EQ(block.size(), wanted.size());
    const bool bSame = std::equal(block.get(), block.get() + block.size(), wanted.get());
    EXPECT_EQ(bSame, row.eFrame == Frame::Whole);
    // What came before the damage is there: the upper rows, whatever became of the rest.
    EXPECT_TRUE(std::equal(block.get(), block.get() + 40 + 64 * 8, wanted.get()));
}

TEST(FailureCodes, FourComponentsAreNoFrames) {
    for (const bool bProgressive : {false, true}) {
        Recipe cmyk;
        cmyk.nComponents = 4;
        cmyk.nH = cmyk.nV = 1;
        cmyk.bProgressive = bProgressive;
        const Bytes jpeg = samples::Encode(cmyk);
        std::int32_t nWidth = 0, nHeight = 0;
        ImageKind eKind{};
        EXPECT_EQ(ProbeJpeg(jpeg.data(), Length(jpeg), nWidth, nHeight, eKind), -1);
        EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), Length(jpeg)));
    }
}

// A header of a few hundred bytes that promises the largest picture. Peak memory is the process's, which has
// met nothing but small pictures otherwise.
TEST(FailureCosts, PromisesOfLargePicturesCostLittle) {
    const auto usage = [] {
        rusage used{};
        getrusage(RUSAGE_SELF, &used);
        return used;
    };
    const rusage before = usage();
    for (const Base eBase :
         {Base::Sequential, Base::Progressive, Base::Grey, Base::Rgb, Base::RgbProgressive, Base::Separate}) {
        Bytes jpeg = MakeBase(eBase);
        InFrame(5, {0xFF, 0xFF, 0xFF, 0xFF})(jpeg, FrameMarker(eBase));
        jpeg.resize(FindMarker(jpeg, kSos) + 14 + 10);
        EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), Length(jpeg)));
        Insert(jpeg, jpeg.size(), {0xFF, 0xD9});
        EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), Length(jpeg)));
    }
    const rusage after = usage();
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024) << "KiB";
    EXPECT_LT(after.ru_utime.tv_sec - before.ru_utime.tv_sec, 2) << "seconds";
}

} // namespace
