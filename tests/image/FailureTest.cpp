// Streams that are damaged, cut off, odd or not for this codec: what each of the two engines says, where it
// says so, and what the door makes of it: the probe, whether there is a frame, and how little a stream that
// promises much may cost.

#include "image/Decoding.h"
#include "image/ImageCodec.h"
#include "image/JpegSamples.h"
#include "image/ijl/Ijl.h"
#include "support/Wait.h"

#include <gtest/gtest.h>

#include <sys/resource.h>

#include <algorithm>
#include <functional>

namespace {

using namespace samples;

constexpr std::uint8_t kSof = 0xC0, kDht = 0xC4, kSos = 0xDA, kDqt = 0xDB, kDri = 0xDD, kApp0 = 0xE0,
                       kApp1 = 0xE1, kCom = 0xFE;

const Recipe Sequential{.nWidth = 64, .nHeight = 64};
const Recipe Progressive{.nWidth = 64, .nHeight = 64, .bProgressive = true};
const Recipe Separate{.nWidth = 64, .nHeight = 64, .bSeparateScans = true};
const Recipe Grey{.nWidth = 64, .nHeight = 64, .nComponents = 1, .nH = 1, .nV = 1};
const Recipe Rgb{.nWidth = 64, .nHeight = 64, .nH = 1, .nV = 1, .bRgb = true};
const Recipe Spectral{
    .nWidth = 64, .nHeight = 64, .script = {{{0, 1, 2}, 0, 0, 0, 0}, {{0}, 1, 5, 0, 0}, {{0}, 6, 63, 0, 0}}};
const Recipe Apart{.nWidth = 64,
                   .nHeight = 64,
                   .script = {{{0}, 0, 0, 0, 0},
                              {{1}, 0, 0, 0, 0},
                              {{2}, 0, 0, 0, 0},
                              {{0}, 1, 63, 0, 0},
                              {{1}, 1, 63, 0, 0},
                              {{2}, 1, 63, 0, 0}}};
const Recipe RgbProgressive{
    .nWidth = 64, .nHeight = 64, .nH = 1, .nV = 1, .bProgressive = true, .bRgb = true};

// The segment's place; kSof stands for the frame header of either kind.
std::size_t Find(const Bytes& jpeg, std::uint8_t nMarker) {
    const bool bProgressive = nMarker == kSof && !SegmentsOf(jpeg, 0xC2).empty();
    return FindMarker(jpeg, bProgressive ? 0xC2 : nMarker);
}

using Edit = std::function<void(Bytes&)>;

void Keep(Bytes&) {}

Edit Be(const Bytes& stream) {
    return [=](Bytes& jpeg) { jpeg = stream; };
}

// Bytes of a segment from that one on, counted from its marker.
Edit Set(std::uint8_t nMarker, std::size_t nOffset, const Bytes& values) {
    return [=](Bytes& jpeg) { std::ranges::copy(values, &jpeg[Find(jpeg, nMarker) + nOffset]); };
}
Edit InFrame(std::size_t nOffset, const Bytes& values) {
    return Set(kSof, nOffset, values);
}

// Of the second scan header of a spectral stream.
Edit InSecondScan(std::size_t nOffset, const Bytes& values) {
    return [=](Bytes& jpeg) {
        const std::uint8_t aMarker[] = {0xFF, kSos};
        const auto first = jpeg.begin() + (Find(jpeg, kSos)) + 2;
        const auto second = std::search(first, jpeg.end(), std::begin(aMarker), std::end(aMarker));
        std::ranges::copy(values, second + nOffset);
    };
}

Edit Without(std::uint8_t nMarker) {
    return [=](Bytes& jpeg) { Remove(jpeg, nMarker); };
}

Edit BeforeFrame(const std::vector<Bytes>& pieces) {
    return [=](Bytes& jpeg) {
        for (const Bytes& piece : pieces)
            Insert(jpeg, Find(jpeg, kSof), piece);
    };
}
Edit BeforeScan(const Bytes& piece) {
    return [=](Bytes& jpeg) { Insert(jpeg, Find(jpeg, kSos), piece); };
}
Edit BeforeEnd(const Bytes& piece) {
    return [=](Bytes& jpeg) { Insert(jpeg, jpeg.size() - 2, piece); };
}

// A segment of the stream once more in front of the end.
Edit Again(std::uint8_t nMarker, int nTimes = 1) {
    return [=](Bytes& jpeg) {
        for (int i = 0; i < nTimes; ++i)
            Insert(jpeg, jpeg.size() - 2, SegmentOf(jpeg, nMarker));
    };
}

// Ends the stream behind so many bytes of the scan header.
Edit CutInScan(std::size_t nBytes) {
    return [=](Bytes& jpeg) { jpeg.resize(Find(jpeg, kSos) + nBytes); };
}

Edit BeforeLastScan(const Bytes& piece) {
    return [=](Bytes& jpeg) {
        const std::uint8_t aMarker[] = {0xFF, kSos};
        const auto scan = std::find_end(jpeg.begin(), jpeg.end(), std::begin(aMarker), std::end(aMarker));
        jpeg.insert(scan, piece.begin(), piece.end());
    };
}

// Takes the end-of-image marker off.
void CutEnd(Bytes& jpeg) {
    jpeg.resize(jpeg.size() - 2);
}

// Refinements of the DC coefficients until the spectral stream has one scan more than it may have.
void OneScanTooMany(Bytes& jpeg) {
    Bytes scan = SegmentOf(jpeg, kSos);
    scan.back() = 0x10;
    Append(scan, Bytes(12)); // a bit for each block
    for (std::size_t i = Spectral.script.size(); i <= kJpegMaxProgressiveScans; ++i)
        Insert(jpeg, jpeg.size() - 2, scan);
}

// Fill bytes in front of some markers of the header.
void Pad(Bytes& jpeg) {
    for (const std::size_t nAt : {Find(jpeg, kSos), Find(jpeg, kSof), Find(jpeg, kDqt)})
        Insert(jpeg, nAt, Bytes(5, 0xFF));
}

// Ends the data of the first scan with ones, of which no code is made.
void DamageData(Bytes& jpeg) {
    const std::size_t nData = Find(jpeg, kSos) + 14;
    std::size_t nEnd = nData;
    while (!(jpeg[nEnd] == 0xFF && jpeg[nEnd + 1] != 0))
        ++nEnd;
    for (std::size_t n = nData + (nEnd - nData) / 2; n + 1 < nEnd; n += 2) {
        jpeg[n] = 0xFF;
        jpeg[n + 1] = 0x00;
    }
}

// All tables of a kind in one segment, as many cameras write them.
Edit InOneSegment(std::uint8_t nMarker) {
    return [=](Bytes& jpeg) {
        Bytes content;
        for (const Bytes& segment : SegmentsOf(jpeg, nMarker))
            Append(content, Part(segment, 4));
        Remove(jpeg, nMarker);
        Insert(jpeg, Find(jpeg, kSof), Segment(nMarker, content));
    };
}

// One identifier for all components, in the frame header and, where all stand in one, in the scan header.
void OneIdentifier(Bytes& jpeg) {
    for (const std::size_t n : {0, 1, 2}) {
        jpeg[Find(jpeg, kSof) + 10 + 3 * n] = 1;
        if (jpeg[Find(jpeg, kSos) + 4] == 3)
            jpeg[Find(jpeg, kSos) + 5 + 2 * n] = 1;
    }
}

// A table whose codes of one length, and of the next, are as many as said.
Bytes Dht(std::uint8_t nTcTh, std::size_t nLength, std::uint8_t nCodes, std::size_t nValues,
          std::uint8_t nOfNext = 0) {
    Bytes content(17 + nValues);
    content[0] = nTcTh;
    content[nLength] = nCodes;
    content[nLength + 1] = nOfNext;
    return Segment(kDht, content);
}

Bytes Thumbnail() {
    Bytes content{'J', 'F', 'X', 'X', 0, 0x10};
    Append(content, Encode(Grey));
    return content;
}

// The status of an engine (JpegTypes.h, Ijl.h), and whether the header gives it already.
struct Verdict {
    bool bHeader;
    int nStatus;

    bool operator==(const Verdict&) const = default;
};
constexpr Verdict Header(int nStatus) {
    return {true, nStatus};
}
constexpr Verdict Data(int nStatus) {
    return {false, nStatus};
}
constexpr Verdict kGood = Data(0);

// What becomes of a stream: refused by the probe; probed but no frame; the sound stream's frame; one that
// differs below the damage; or one that differs from its first row on, because the engine for it is the other
// one, whose arithmetic differs, or because the tables are not those that the data was made with.
enum Outcome { Refused, None, Whole, Different, Other };

struct Row {
    const char* szName;
    Recipe base;
    Edit edit;
    Verdict primary, fallback;
    Outcome eOutcome;
};

const Row kRows[] = {
    // What stands around a picture.
    {"Untouched", Sequential, Keep, kGood, kGood, Whole},
    {"Rgb", Rgb, Keep, kGood, kGood, Whole},
    {"RgbProgressive", RgbProgressive, Keep, kGood, kGood, Whole},
    {"OneScanAComponent", Separate, Keep, Header(-1), kGood, Whole},
    {"LongComments", Sequential, BeforeFrame({Segment(kCom, {}), Segment(kCom, Bytes(65533, 0xFF))}), kGood,
     kGood, Whole},
    {"StreamInAnApplicationSegment", Sequential, BeforeFrame({Segment(kApp1, Encode(Grey))}), kGood, kGood,
     Whole},
    {"StreamAsThumbnail", Separate, BeforeFrame({Segment(kApp0, Thumbnail())}), Header(-1), kGood, Whole},
    {"Padding", Sequential, Pad, kGood, kGood, Whole},
    {"PaddingBeforeTheEnd", Sequential, BeforeEnd(Bytes(3, 0xFF)), kGood, kGood, Whole},
    {"BytesBehindTheEnd", Sequential, [](Bytes& j) { Append(j, Bytes(100, 0xD8)); }, kGood, kGood, Whole},
    {"RubbishBetweenSegments", Sequential, BeforeFrame({{0x12, 0x34, 0xFF, 0x00, 0x56}}), kGood, kGood,
     Whole},
    {"QuantTablesInOneSegment", Sequential, InOneSegment(kDqt), kGood, kGood, Whole},
    {"HuffmanTablesInOneSegment", Sequential, InOneSegment(kDht), kGood, kGood, Whole},
    {"UnknownSegments", Sequential,
     BeforeFrame({Segment(0xCC, {1}), Segment(0xDC, {2}), Segment(0xE5, {3}), Segment(0xF3, {4})}), kGood,
     kGood, Whole},
    {"StartEndsTheRestartInterval", Separate, BeforeFrame({Segment(kDri, {0, 1}), {0xFF, 0xD8}}), Header(-1),
     kGood, Whole},
    {"QuantOfTheLastScan", RgbProgressive, BeforeLastScan(Segment(kDqt, Bytes(65))), kGood, kGood, Whole},
    {"QuantBehindTheLastScan", Apart, BeforeEnd(Segment(kDqt, Bytes(65))), kGood, kGood, Whole},
    // Markers and lengths.
    {"Empty", Sequential, Be({}), Header(-3), Header(-8), Refused},
    {"NoMarkers", Sequential, Be(Bytes(100, 0x55)), Header(-3), Header(-21), Refused},
    {"NothingButAnEnd", Sequential, Be({0xFF, 0xD8, 0xFF, 0xD9}), Header(-3), Header(-19), Refused},
    {"NoScan", Sequential, CutInScan(0), Header(-3), Header(-21), Refused},
    {"EndInsteadOfScan", Sequential, BeforeScan({0xFF, 0xD9}), Header(-3), Header(-21), Refused},
    {"LengthAtTheEnd", Sequential, Be({0xFF, 0xD8, 0xFF, 0xE5, 0x00, 0x02}), Header(-3), Header(-21),
     Refused},
    {"LengthBelowTwo", Sequential, BeforeFrame({{0xFF, 0xE5, 0x00, 0x01, 0x00}}), Header(-7), Header(-21),
     Refused},
    {"SegmentPastTheEnd", Sequential, BeforeFrame({{0xFF, 0xE5, 0xFF, 0xFF}}), Header(-3), Header(-21),
     Refused},
    {"RestartBeforeScan", Sequential, BeforeFrame({{0xFF, 0xD3}}), Header(-2), kGood, Other},
    // Streams cut or damaged.
    {"ScanHeaderCut", Sequential, CutInScan(10), Header(-3), Data(-21), None},
    {"DataCutAtOnce", Sequential, CutInScan(14), Data(-3), Data(-21), None},
    {"NoEnd", Sequential, CutEnd, Data(-3), Data(-21), None},
    {"NoEndProgressive", Progressive, CutEnd, Data(-3), Data(-21), None},
    {"NoEndFallback", Rgb, CutEnd, Data(-3), Data(-21), None},
    {"Damaged", Sequential, DamageData, kGood, kGood, Different},
    {"DamagedFallback", Rgb, DamageData, kGood, kGood, Different},
    {"DamagedProgressive", Progressive, DamageData, Data(-2), Data(-21), None},
    // Kinds of frames that no engine reads.
    {"ExtendedSequential", Sequential, InFrame(1, {0xC1}), kGood, kGood, Whole},
    {"Precision12", Sequential, InFrame(4, {12}), Header(-1), Header(-29), Refused},
    // Samplings: the probe takes them all, the data of a YCbCr stream is read at three of them.
    {"Sampling411", Sequential, InFrame(11, {0x41}), Data(-1), kGood, None},
    {"Sampling440", Sequential, InFrame(11, {0x12}), Data(-1), kGood, None},
    {"Sampling3x1", Sequential, InFrame(11, {0x31}), Data(-1), kGood, None},
    {"LumaSmallerThanChroma", Sequential, InFrame(11, {0x11, 0x00, 0x02, 0x22}), Data(-1), kGood, None},
    {"Sampling440Progressive", Progressive, InFrame(11, {0x12}), Data(-1), Data(-21), None},
    {"GreyFactorsSayNothing", Grey, InFrame(11, {0x22}), kGood, kGood, Whole},
    {"FactorZeroAcross", Sequential, InFrame(11, {0x02}), Header(-10), Header(-15), Refused},
    {"FactorZeroDown", Sequential, InFrame(11, {0x20}), Header(-10), Header(-15), Refused},
    {"FactorFive", Sequential, InFrame(11, {0x51}), Data(-1), Header(-15), None},
    // Frame headers that make no sense.
    {"ZeroWidth", Sequential, InFrame(7, {0, 0}), Header(-10), Header(-16), Refused},
    {"ZeroHeight", Sequential, InFrame(5, {0, 0}), Header(-10), Header(-16), Refused},
    {"SideAboveLimit", Sequential, InFrame(5, {0xFF, 0xFF}), Header(-1), Header(-29), Refused},
    {"AreaAboveLimit", Sequential, InFrame(5, {0x20, 0, 0x20, 1}), Header(-1), Header(-29),
     Refused}, // 8193 x 8192
    {"NoComponents", Sequential, InFrame(9, {0}), Header(-10), Header(-14), Refused},
    {"OneComponentLess", Sequential, InFrame(9, {2}), Header(-7), Header(-15), Refused},
    {"OneComponentMore", Sequential, InFrame(9, {4}), Header(-7), Header(-15), Refused},
    {"FiveComponents", Sequential, InFrame(9, {5}), Header(-10), Header(-15), Refused},
    // Identifiers that repeat: a scan names the first component that fits.
    {"ScanNamesTheSecondOfTwo", Sequential, InFrame(13, {1}), Header(-8), Data(-14), None},
    {"OneIdentifierForAll", Rgb, OneIdentifier, kGood, kGood, Whole},
    {"OneIdentifierForAllProgressive", RgbProgressive, OneIdentifier, Data(-8), Data(-14), None},
    {"OneIdentifierInSeparateScans", Separate, [](Bytes& j) { OneIdentifier(j), Remove(j, 0xDD); },
     Header(-1), Data(-14), None},
    {"NoFrame", Sequential, Without(kSof), Header(-8), Header(-19), Refused},
    {"TwoFrames", Sequential, [](Bytes& j) { Insert(j, Find(j, kSof), SegmentOf(j, kSof)); }, Header(-10),
     Header(-29), Refused},
    {"TwoFramesBehindTheScan", Sequential, Again(kSof), Data(-10), Data(-29), None},
    // Tables.
    {"QuantIdentifier4", Sequential, Set(kDqt, 4, {4}), Header(-5), Header(-7), Refused},
    {"QuantOf16BitsCutShort", Sequential, Set(kDqt, 4, {0x10}), Header(-7), Header(-7), Refused},
    {"QuantTooLong", Sequential, BeforeFrame({Segment(kDqt, Bytes(67))}), Header(-7), Header(-7), Refused},
    {"NoQuantTable", Sequential, Without(kDqt), Data(-5), Data(-18), None},
    {"NoQuantTableProgressive", Progressive, Without(kDqt), Data(-5), Data(-18), None},
    {"NoQuantTableRgbProgressive", RgbProgressive, Without(kDqt), kGood, Data(-18), None},
    {"NoHuffmanTable", Sequential, Without(kDht), Data(-4), Data(-17), None},
    {"NoHuffmanTableProgressive", Progressive, Without(kDht), Data(-4), Data(-17), None},
    {"HuffmanClass2", Sequential, Set(kDht, 4, {0x20}), Data(-4), Header(-6), None},
    {"HuffmanIdentifier4", Sequential, Set(kDht, 4, {4}), Header(-4), Header(-6), Refused},
    {"HuffmanMoreThan256", Sequential, BeforeFrame({Dht(0, 8, 255, 257, 2)}), Header(-4), Header(-6),
     Refused},
    {"HuffmanMoreThanItHolds", Sequential, BeforeFrame({Dht(0, 8, 10, 9)}), Header(-4), Header(-6), Refused},
    {"HuffmanLeftOver", Sequential, BeforeFrame({Dht(0, 8, 10, 12)}), Header(-7), Header(-6), Refused},
    {"HuffmanOverfullUnused", Sequential, BeforeScan(Dht(3, 1, 3, 3)), kGood, Header(-6), Whole},
    {"HuffmanOverfullUsed", Sequential, BeforeScan(Dht(0, 1, 3, 3)), Data(-4), Header(-6), None},
    {"RestartIntervalLength", Sequential, BeforeScan(Segment(kDri, {0, 1, 2})), Header(-7), Data(-25), None},
    {"RestartIntervalZero", Sequential, BeforeScan(Segment(kDri, {0, 0})), kGood, kGood, Whole},
    {"RestartThatIsNotThere", Sequential, BeforeScan(Segment(kDri, {0, 1})), Data(-3), Data(-25), None},
    {"RestartIntervalTakesInTheScan", Sequential, BeforeScan({0xFF, kDri, 0, 9, 0, 0}), Header(-7), kGood,
     Other},
    // Scans. What the primary engine refuses in a header, the fallback refuses in the scan.
    {"QuantSelector", Sequential, InFrame(12, {4}), Header(-5), Data(-18), None},
    {"QuantSelectorFallback", Separate, InFrame(12, {255}), Header(-5), Data(-18), None},
    {"DcSelector4", Sequential, Set(kSos, 6, {0x40}), Header(-4), Data(-17), None},
    {"DcSelectorUnset", Sequential, Set(kSos, 6, {0x30}), Data(-4), Data(-17), None},
    {"AcSelector4", Sequential, Set(kSos, 6, {0x04}), Header(-4), Data(-17), None},
    {"ScanOfNone", Sequential, Set(kSos, 4, {0}), Header(-6), Data(-14), None},
    {"ScanOfFive", Sequential, Set(kSos, 4, {5}), Header(-6), Data(-14), None},
    {"ScanOfTwo", Sequential, Set(kSos, 4, {2}), Header(-1), Data(-21), None},
    {"ScanLength", Sequential, Set(kSos, 3, {13}), Header(-7), Data(-21), None},
    {"ScanOfAnUnknown", Sequential, Set(kSos, 5, {99}), Header(-8), Data(-14), None},
    {"ScanNamesOneTwice", Sequential, Set(kSos, 7, {1}), kGood, kGood, Other},
    {"ScanOfTwoNamesOneTwice", Sequential,
     [](Bytes& j) { Insert(j, Find(j, kSos), Segment(kSos, {2, 1, 0, 1, 0, 0, 63, 0})); }, Header(-1),
     Data(-14), None},
    {"SecondScan", Sequential,
     [](Bytes& j) { Insert(j, j.size() - 2, Part(j, Find(j, kSos), j.size() - 2)); }, kGood, Data(-14),
     Whole},
    {"OnePassTooMany", Sequential, Again(kSos, kJpegMaxSequentialScans), Data(-1), Data(-14), None},
    // Scans of a band.
    {"Spectral", Spectral, Keep, kGood, kGood, Whole},
    {"BandBeginsAboveItsEnd", Spectral, InSecondScan(7, {9}), Data(-2), Data(-21), None},
    {"BandEndsBeyondTheBlock", Spectral, InSecondScan(8, {64}), Data(-2), Data(-21), None},
    {"ShiftBeyond13", Spectral, InSecondScan(9, {14}), Data(-2), Data(-21), None},
    {"AcSelectorUnset", Spectral, InSecondScan(6, {3}), Data(-4), Data(-17), None},
    {"DcSelectorUnsetSpectral", Spectral, Set(kSos, 6, {0x30}), Data(-4), Data(-17), None},
    {"DataEndsAtOnce", Spectral, [](Bytes& j) { CutInScan(14)(j), Append(j, {0xFF, 0xD9}); }, Data(-2),
     Data(-21), None},
    {"OneScanTooMany", Spectral, OneScanTooMany, Data(-1), Data(-14), None},
};

class Failures : public testing::TestWithParam<Row> {};
INSTANTIATE_TEST_SUITE_P(All, Failures, testing::ValuesIn(kRows),
                         [](const auto& row) { return row.param.szName; });

Verdict ByFallback(Bytes jpeg) {
    JPEG_CORE_PROPERTIES record;
    EXPECT_EQ(ijlInit(&record), IJL_OK);
    record.JPGBytes = jpeg.data();
    record.JPGSizeBytes = Size(jpeg);
    const IJLERR eParams = ijlRead(&record, IJL_JBUFF_READPARAMS);
    Bytes image(64 * 64 * 3);
    record.DIBBytes = image.data();
    record.DIBWidth = record.DIBHeight = 64;
    const IJLERR eWhole = ijlRead(&record, IJL_JBUFF_READWHOLEIMAGE);
    EXPECT_TRUE(eParams == IJL_OK || eWhole == eParams || jpeg.empty());
    EXPECT_EQ(ijlFree(&record), IJL_OK);
    return {eParams != IJL_OK, eParams != IJL_OK ? eParams : eWhole};
}

TEST_P(Failures, HaveTheirOutcome) {
    const Row& row = GetParam();
    const Watchdog watchdog(row.szName);
    const Bytes sound = Encode(row.base);
    Bytes edited = sound;
    row.edit(edited);
    const Bytes jpeg(edited); // no spare capacity behind the last byte
    const Decode decode(jpeg);
    EXPECT_EQ(decode.eHeader != JPEG_OK ? Header(decode.eHeader) : Data(decode.eData), row.primary);
    EXPECT_EQ(ByFallback(jpeg), row.fallback);

    std::int32_t nWidth = -7, nHeight = -8;
    ImageKind eKind{};
    EXPECT_EQ(ProbeJpeg(jpeg.data(), Size(jpeg), nWidth, nHeight, eKind),
              row.eOutcome == Refused ? -1 : ImageOk);
    EXPECT_TRUE(row.eOutcome != Refused || (nWidth == -7 && nHeight == -8)) << "written on success alone";
    const FrameBlock block = DecodeToFrameBlock(jpeg.data(), Size(jpeg));
    const bool bFrame = row.eOutcome >= Whole;
    ASSERT_EQ(static_cast<bool>(block), bFrame);
    // The operations on planes say the same.
    Bytes y(64 * 64), cr(32 * 32), cb(32 * 32);
    EXPECT_EQ(DecodeJpegYV12(jpeg.data(), Size(jpeg), y.data(), 64, cr.data(), 32, cb.data(), 32),
              bFrame ? ImageOk : ImageUnreadable);
    if (!bFrame)
        return;

    const FrameBlock wanted = DecodeToFrameBlock(sound.data(), Size(sound));
    ASSERT_TRUE(wanted);
    ASSERT_EQ(block.size(), wanted.size());
    EXPECT_EQ(std::equal(block.get(), block.get() + block.size(), wanted.get()), row.eOutcome == Whole);
    // What came before the damage is there: the upper rows, whatever became of the rest.
    EXPECT_EQ(std::equal(block.get(), block.get() + 40 + 64 * 8, wanted.get()), row.eOutcome != Other);
}

// Frames of the other kinds are none of either engine's, and pictures of four components none of the
// facade's.
TEST(FailureCodes, OthersAreNoFrames) {
    std::int32_t nWidth = 0, nHeight = 0;
    ImageKind eKind{};
    const auto probe = [&](const Bytes& jpeg) {
        return ProbeJpeg(jpeg.data(), Size(jpeg), nWidth, nHeight, eKind);
    };
    for (const std::uint8_t nSof : Bytes{0xC3, 0xC5, 0xC6, 0xC7, 0xC9, 0xCA, 0xCB, 0xCD, 0xCE, 0xCF}) {
        Bytes jpeg = Encode(Sequential);
        InFrame(1, {nSof})(jpeg);
        EXPECT_EQ(Decode(jpeg).eHeader, JPEG_NOT_SUPPORTED) << int{nSof};
        EXPECT_EQ(ByFallback(jpeg), Header(IJL_UNSUPPORTED_FRAME)) << int{nSof};
        EXPECT_EQ(probe(jpeg), -1) << int{nSof};
    }
    for (const bool bProgressive : {false, true})
        EXPECT_EQ(probe(Encode({.nComponents = 4, .nH = 1, .nV = 1, .bProgressive = bProgressive})), -1);
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
    for (const Recipe& base : {Sequential, Progressive, Grey, Rgb, RgbProgressive, Separate}) {
        Bytes jpeg = Encode(base);
        InFrame(5, {0xFF, 0xFF, 0xFF, 0xFF})(jpeg);
        CutInScan(14 + 10)(jpeg);
        EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), Size(jpeg)));
        Append(jpeg, {0xFF, 0xD9});
        EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), Size(jpeg)));
    }
    const rusage after = usage();
    EXPECT_LT(after.ru_maxrss - before.ru_maxrss, 16 * 1024) << "KiB";
    EXPECT_LT(after.ru_utime.tv_sec - before.ru_utime.tv_sec, 2) << "seconds";
}

} // namespace
