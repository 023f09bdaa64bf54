// The codec's failures at its door: whichever engine a stream meets, what the probe says, whether there is a
// frame, and how little a stream that promises much may cost.

#include "image/ImageCodec.h"
#include "image/JpegSamples.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <functional>

namespace {

using namespace samples;

constexpr std::uint8_t kDht = 0xC4, kSos = 0xDA, kDqt = 0xDB, kApp0 = 0xE0, kApp1 = 0xE1, kCom = 0xFE;

enum class Base { Sequential, Progressive, Grey, Rgb, RgbProgressive, Separate };

Bytes MakeBase(Base eBase) {
    const bool bRgb = eBase == Base::Rgb || eBase == Base::RgbProgressive, bGrey = eBase == Base::Grey;
    return Encode({.nWidth = 64,
                   .nHeight = 64,
                   .nComponents = bGrey ? 1 : 3,
                   .nH = bRgb || bGrey ? 1 : 2,
                   .nV = bRgb || bGrey ? 1 : 2,
                   .bProgressive = eBase == Base::Progressive || eBase == Base::RgbProgressive,
                   .bSeparateScans = eBase == Base::Separate,
                   .bRgb = bRgb});
}

std::uint8_t FrameMarker(Base eBase) {
    return eBase == Base::Progressive || eBase == Base::RgbProgressive ? 0xC2 : 0xC0;
}

using Edit = std::function<void(Bytes& jpeg, std::uint8_t nFrameMarker)>;

Edit Without(std::uint8_t nMarker) {
    return [=](Bytes& jpeg, std::uint8_t) { Remove(jpeg, nMarker); };
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

Edit BeforeFrame(const std::vector<Bytes>& pieces) {
    return [=](Bytes& jpeg, std::uint8_t nFrameMarker) {
        for (const Bytes& piece : pieces)
            Insert(jpeg, FindMarker(jpeg, nFrameMarker), piece);
    };
}

Edit BeforeScan(const Bytes& piece) {
    return [=](Bytes& jpeg, std::uint8_t) { Insert(jpeg, FindMarker(jpeg, kSos), piece); };
}

// Fill bytes in front of some markers of the header.
void Pad(Bytes& jpeg, std::uint8_t nFrameMarker) {
    for (const std::uint8_t nMarker : {kSos, nFrameMarker, kDqt})
        Insert(jpeg, FindMarker(jpeg, nMarker), Bytes(5, 0xFF));
}

void Keep(Bytes&, std::uint8_t) {}

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

Bytes Thumbnail() {
    Bytes content{'J', 'F', 'X', 'X', 0, 0x10};
    Append(content, MakeBase(Base::Grey));
    return content;
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
    Frame eFrame = Frame::None;
};

const Row kRows[] = {
    // No header.
    {"Empty", Base::Sequential, [](Bytes& j, std::uint8_t) { j.clear(); }, -1},
    {"NoScan", Base::Sequential, [](Bytes& j, std::uint8_t) { j.resize(FindMarker(j, kSos)); }, -1},
    {"EndInsteadOfScan", Base::Sequential, BeforeScan({0xFF, 0xD9}), -1},
    // Kinds of frames that no engine reads.
    {"Precision12", Base::Sequential, InFrame(4, {12}), -1},
    {"Precision12Progressive", Base::Progressive, InFrame(4, {12}), -1},
    {"Lossless", Base::Sequential, InFrame(1, {0xC3}), -1},
    {"Hierarchical", Base::Sequential, InFrame(1, {0xC5}), -1},
    {"Arithmetic", Base::Sequential, InFrame(1, {0xC9}), -1},
    {"ArithmeticProgressive", Base::Progressive, InFrame(1, {0xCA}), -1},
    // Samplings: the probe takes them all, the data of a YCbCr stream is read at three of them.
    {"Sampling411", Base::Sequential, InFrame(11, {0x41}), 0},
    {"Sampling440", Base::Sequential, InFrame(11, {0x12}), 0},
    {"Sampling3x1", Base::Sequential, InFrame(11, {0x31}), 0},
    {"LumaSmallerThanChroma", Base::Sequential, InFrame(11, {0x11, 0x00, 0x02, 0x22}), 0},
    {"Sampling440Progressive", Base::Progressive, InFrame(11, {0x12}), 0},
    {"FactorZero", Base::Sequential, InFrame(11, {0x02}), -1},
    {"GreyFactorsSayNothing", Base::Grey, InFrame(11, {0x22}), 0, Frame::Whole},
    // Streams cut or damaged.
    {"NoEnd", Base::Sequential, CutEnd, 0},
    {"NoEndProgressive", Base::Progressive, CutEnd, 0},
    {"NoEndFallback", Base::Rgb, CutEnd, 0},
    {"Damaged", Base::Sequential, DamageData, 0, Frame::Damaged},
    {"DamagedFallback", Base::Rgb, DamageData, 0, Frame::Damaged},
    {"DamagedProgressive", Base::Progressive, DamageData, 0},
    // Frame headers that make no sense.
    {"ZeroWidth", Base::Sequential, InFrame(7, {0, 0}), -1},
    {"ZeroHeight", Base::Sequential, InFrame(5, {0, 0}), -1},
    {"ZeroHeightFallback", Base::Rgb, InFrame(5, {0, 0}), -1},
    {"TwoFrames", Base::Sequential,
     [](Bytes& j, std::uint8_t n) { Insert(j, FindMarker(j, n), SegmentOf(j, n)); }, -1},
    {"TwoFramesBehindTheScan", Base::Sequential,
     [](Bytes& j, std::uint8_t n) { Insert(j, j.size() - 2, SegmentOf(j, n)); }, 0},
    {"NoFrame", Base::Sequential, Without(0xC0), -1},
    {"FiveComponents", Base::Sequential, InFrame(9, {5}), -1},
    // Tables.
    {"NoQuantTable", Base::Sequential, Without(kDqt), 0},
    {"NoQuantTableProgressive", Base::Progressive, Without(kDqt), 0},
    {"NoHuffmanTable", Base::Sequential, Without(kDht), 0},
    {"NoHuffmanTableProgressive", Base::Progressive, Without(kDht), 0},
    // The fallback's probe stops where the first scan begins.
    {"NoQuantTableFallback", Base::Rgb, Without(kDqt), 0},
    {"NoHuffmanTableFallback", Base::Rgb, Without(kDht), 0},
    {"OverfullTable", Base::Sequential, BeforeScan(OverfullTable()), 0},
    {"OverfullTableFallback", Base::Rgb, BeforeScan(OverfullTable()), -1},
    {"TooManyCodes", Base::Sequential, BeforeFrame({TooManyCodes()}), -1},
    // Selectors: what the primary engine refuses in a header, the fallback refuses in the scan.
    {"QuantSelector", Base::Sequential, InFrame(12, {4}), 0},
    {"QuantSelectorFallback", Base::Separate, InFrame(12, {255}), 0},
    {"DcSelector", Base::Sequential, InScan(6, 0xF0), 0},
    {"AcSelector", Base::Sequential, InScan(6, 0x04), 0},
    {"SelectorFallback", Base::Separate, InScan(6, 0x44), 0},
    {"UnknownComponent", Base::Sequential, InScan(5, 99), 0},
    {"QuantIdentifier", Base::Sequential, BeforeFrame({Segment(kDqt, Bytes(65, 9))}), -1},
    // What phones, cameras and programs put into sound streams.
    {"LongComments", Base::Sequential, BeforeFrame({Segment(kCom, {}), Segment(kCom, Bytes(65533, 0xFF))}), 0,
     Frame::Whole},
    {"StreamInAnApplicationSegment", Base::Sequential, BeforeFrame({Segment(kApp1, MakeBase(Base::Grey))}), 0,
     Frame::Whole},
    {"StreamAsThumbnail", Base::Separate, BeforeFrame({Segment(kApp0, Thumbnail())}), 0, Frame::Whole},
    {"Padding", Base::Sequential,
     [](Bytes& j, std::uint8_t n) {
         Pad(j, n);
         Insert(j, j.size() - 2, Bytes(3, 0xFF));
     },
     0, Frame::Whole},
    {"PaddingProgressive", Base::Progressive, Pad, 0, Frame::Whole},
    {"BytesBehindTheEnd", Base::Sequential,
     [](Bytes& j, std::uint8_t) { Insert(j, j.size(), Bytes(100, 0xD8)); }, 0, Frame::Whole},
    {"Rgb", Base::Rgb, Keep, 0, Frame::Whole},
    // Progressive streams of the fallback.
    {"RgbProgressive", Base::RgbProgressive, Keep, 0, Frame::Whole},
    {"NoEndRgbProgressive", Base::RgbProgressive, CutEnd, 0},
    {"DamagedRgbProgressive", Base::RgbProgressive, DamageData, 0},
    {"Precision12RgbProgressive", Base::RgbProgressive, InFrame(4, {12}), -1},
    {"ZeroHeightRgbProgressive", Base::RgbProgressive, InFrame(5, {0, 0}), -1},
    {"NoQuantTableRgbProgressive", Base::RgbProgressive, Without(kDqt), 0},
    {"NoHuffmanTableRgbProgressive", Base::RgbProgressive, Without(kDht), 0},
    {"SelectorRgbProgressive", Base::RgbProgressive, InScan(6, 0x44), 0},
    {"OneScanAComponent", Base::Separate, Keep, 0, Frame::Whole},
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
    EXPECT_EQ(ProbeJpeg(jpeg.data(), Size(jpeg), nWidth, nHeight, eKind), row.nProbe);
    if (row.nProbe != ImageOk) {
        EXPECT_EQ(nWidth, -7) << "written on success alone";
        EXPECT_EQ(nHeight, -8);
    }
    const FrameBlock block = DecodeToFrameBlock(jpeg.data(), Size(jpeg));
    ASSERT_EQ(static_cast<bool>(block), row.eFrame != Frame::None);

    // The operations on planes say the same.
    Bytes y(64 * 64), cr(32 * 32), cb(32 * 32);
    const std::int32_t nResult =
        DecodeJpegYV12(jpeg.data(), Size(jpeg), y.data(), 64, cr.data(), 32, cb.data(), 32);
    EXPECT_EQ(nResult, row.eFrame == Frame::None ? ImageUnreadable : ImageOk);
    if (row.eFrame == Frame::None)
        return;

    const FrameBlock wanted = DecodeToFrameBlock(sound.data(), Size(sound));
    ASSERT_TRUE(wanted);
    ASSERT_EQ(block.size(), wanted.size());
    const bool bSame = std::equal(block.get(), block.get() + block.size(), wanted.get());
    EXPECT_EQ(bSame, row.eFrame == Frame::Whole);
    // What came before the damage is there: the upper rows, whatever became of the rest.
    EXPECT_TRUE(std::equal(block.get(), block.get() + 40 + 64 * 8, wanted.get()));
}

TEST(FailureCodes, FourComponentsAreNoFrames) {
    for (const bool bProgressive : {false, true}) {
        const Bytes jpeg = Encode({.nComponents = 4, .nH = 1, .nV = 1, .bProgressive = bProgressive});
        std::int32_t nWidth = 0, nHeight = 0;
        ImageKind eKind{};
        EXPECT_EQ(ProbeJpeg(jpeg.data(), Size(jpeg), nWidth, nHeight, eKind), -1);
        EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), Size(jpeg)));
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
        EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), Size(jpeg)));
        Insert(jpeg, jpeg.size(), {0xFF, 0xD9});
        EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), Size(jpeg)));
    }
    const rusage after = usage();
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024) << "KiB";
    EXPECT_LT(after.ru_utime.tv_sec - before.ru_utime.tv_sec, 2) << "seconds";
}

} // namespace
