// The facade: pictures of every kind against an independent decoder, the layout of what comes out, and what
// becomes of streams that are cut, damaged or of another kind.

#include "image/ImageCodec.h"
#include "image/JpegSamples.h"
#include "image/format/JpegStandardTables.h"
#include "image/jpegdec/JpegTables.h"
#include "image/kernels/Level.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cpuid.h>
#include <numeric>
#include <random>
#include <set>
#include <thread>

namespace {

using namespace samples;

FrameBlock Decode(const Bytes& jpeg) {
    return DecodeToFrameBlock(jpeg.data(), Size(jpeg));
}

// Chroma at half resolution from the coded samples, by the arithmetic that the decoder documents.
int WantedChroma(const Plane& coded, const Recipe& recipe, int x, int y) {
    if (recipe.nV == 2)
        return coded.At(x, y);
    const auto full = [&](int fx, int fy) {
        if (recipe.nH == 1)
            return coded.At(fx, fy);
        const int i = fx / 2;
        const int nBeside = std::clamp(fx % 2 == 0 ? i - 1 : i + 1, 0, coded.nWidth - 1);
        return (3 * coded.At(i, fy) + coded.At(nBeside, fy) + (fx % 2 == 0 ? 1 : 2)) >> 2;
    };
    return (full(2 * x, 2 * y) + full(2 * x + 1, 2 * y) + full(2 * x, 2 * y + 1) +
            full(2 * x + 1, 2 * y + 1) + 3) >>
           2;
}

// The whole block against the oracle, within 1 a sample.
void ExpectPicture(const Recipe& recipe) {
    SCOPED_TRACE(recipe.Name());
    const Bytes jpeg = Encode(recipe);
    const std::vector<Plane> coded = DecodeRaw(jpeg);
    const FrameBlock block = Decode(jpeg);
    ASSERT_TRUE(block);
    const bool bGrey = recipe.nComponents == 1;
    const int w = recipe.nWidth, h = recipe.nHeight;
    const auto header = block.Header();
    EXPECT_EQ(header.biSize, 40u);
    EXPECT_EQ(header.biWidth, w);
    EXPECT_EQ(header.biHeight, h);
    EXPECT_EQ(header.biPlanes, bGrey ? 1 : 3);
    EXPECT_EQ(header.biBitCount, bGrey ? 8 : 12);
    EXPECT_EQ(header.biCompression, bGrey ? 0u : 0x32315659u);
    EXPECT_EQ(header.biSizeImage, static_cast<std::uint32_t>(bGrey ? w * h : w * h * 3 / 2));
    EXPECT_EQ(block.size(), 40 + header.biSizeImage);
    int nWorst = 0;
    const std::uint8_t* p = block.Planes();
    for (int y = 0; y < h; ++y) {
        for (int x = 0; x < w; ++x)
            nWorst = std::max(nWorst, std::abs(*p++ - coded[0].At(x, y)));
    }
    EXPECT_LE(nWorst, 1) << "luma";
    for (const std::size_t c : {2u, 1u}) {
        const std::uint8_t* const pPlane = block.Planes() + w * h + (c == 1 ? w * h / 4 : 0);
        nWorst = 0;
        for (int y = 0; y < h / 2 && !bGrey; ++y) {
            for (int x = 0; x < w / 2; ++x)
                nWorst = std::max(nWorst,
                                  std::abs(pPlane[y * (w / 2) + x] - WantedChroma(coded[c], recipe, x, y)));
        }
        EXPECT_LE(nWorst, 1) << "chroma " << c;
    }
}

const Kind kSamplings[] = {{"Grey", {.nComponents = 1, .nH = 1, .nV = 1}},
                           {"S444", {.nH = 1, .nV = 1}},
                           {"S422", {.nV = 1}},
                           {"S420", {}}};

using Pictures = testing::TestWithParam<Kind>;
INSTANTIATE_TEST_SUITE_P(All, Pictures, testing::ValuesIn(kSamplings),
                         KindName<testing::TestParamInfo<Kind>>);

TEST_P(Pictures, OfSmallSizesAndOfACameras) {
    for (const int w : {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 33}) {
        for (const int h : {1, 2, 5, 8, 9, 15, 16, 17, 33})
            ExpectPicture(GetParam().Sized(w, h));
    }
    ExpectPicture(GetParam().Sized(640, 480));
}

TEST_P(Pictures, OfEveryQualityMarkingAndRestartInterval) {
    for (const int nQuality : {1, 2, 5, 10, 25, 50, 75, 90, 95, 98, 99, 100}) {
        Recipe recipe = GetParam().Sized(101, 67);
        recipe.nQuality = nQuality;
        recipe.bOptimised = nQuality % 2 == 0;
        recipe.eMarking = static_cast<Marking>(nQuality % 4);
        recipe.nSeed = static_cast<unsigned>(nQuality);
        ExpectPicture(recipe);
    }
    for (const int nInterval : {1, 2, 3, 7, 20, 1000})
        ExpectPicture(GetParam().Sized(120, 50, nInterval));
}

// Into memory of the caller: strides wider than the picture, and nothing written between or behind.
TEST_P(Pictures, IntoPlanesWithStrides) {
    for (const auto& [w, h] : {std::pair{1, 1}, {1, 9}, {9, 1}, {17, 19}, {40, 24}}) {
        const Recipe recipe = GetParam().Sized(w, h);
        SCOPED_TRACE(recipe.Name());
        const Bytes jpeg = Encode(recipe);
        const auto nSize = Size(jpeg);
        std::int32_t nWidth = 0, nHeight = 0;
        ImageKind eKind{};
        ASSERT_EQ(ProbeJpeg(jpeg.data(), nSize, nWidth, nHeight, eKind), 0);
        EXPECT_EQ(nWidth, w);
        EXPECT_EQ(nHeight, h);
        EXPECT_EQ(eKind, recipe.nComponents == 1 ? ImageKindGrey : ImageKindYV12);
        const FrameBlock block = Decode(jpeg);
        ASSERT_TRUE(block);

        const int nYStep = w + 5, nCrStep = w / 2 + 3, nCbStep = w / 2 + 7;
        const auto bytes = [](int nStep, int nRows, int nColumns) {
            return Bytes(nRows == 0 ? 0 : nStep * (nRows - 1) + nColumns, 0xEE);
        };
        // A grey stream's neutral chroma fills half the height times the stride.
        const bool bGrey = recipe.nComponents == 1;
        Bytes y = bytes(nYStep, h, w);
        const auto chroma = [&, w = w, h = h](int nStep) {
            return bGrey ? Bytes(h * nStep / 2, 0xEE) : bytes(nStep, h / 2, w / 2);
        };
        Bytes cr = chroma(nCrStep), cb = chroma(nCbStep);
        ASSERT_EQ(
            DecodeJpegYV12(jpeg.data(), nSize, y.data(), nYStep, cr.data(), nCrStep, cb.data(), nCbStep), 0);
        const auto expect = [](const Bytes& plane, const std::uint8_t* pWanted, int nStep, int nRowBytes) {
            for (std::size_t i = 0; i < plane.size(); ++i) {
                const int nRow = static_cast<int>(i) / nStep, nColumn = static_cast<int>(i) % nStep;
                ASSERT_EQ(plane[i], nColumn < nRowBytes ? pWanted[nRow * nRowBytes + nColumn] : 0xEE) << i;
            }
        };
        expect(y, block.Planes(), nYStep, w);
        if (bGrey) {
            EXPECT_EQ(cr, Bytes(cr.size(), 128));
            EXPECT_EQ(cb, Bytes(cb.size(), 128));
        } else {
            expect(cr, block.Planes() + w * h, nCrStep, w / 2);
            expect(cb, block.Planes() + w * h + w * h / 4, nCbStep, w / 2);
        }
        // Of colour the luma, which the fallback engine reads.
        Bytes grey = bytes(nYStep, h, w);
        EXPECT_EQ(DecodeJpegGrey(jpeg.data(), nSize, grey.data(), nYStep), 0);
        EXPECT_EQ(grey, y);
    }
}

// Cut anywhere there is no frame. With an end-of-image marker put behind the cut there is one as soon as the
// data has begun, unless a restart is due there: whatever marker comes next is taken for it.
TEST_P(Pictures, CutAtEveryByte) {
    for (const int nInterval : {0, 2}) {
        const Bytes jpeg = Encode(GetParam().Sized(32, 32, nInterval));
        const std::size_t nData = jpeg.size() - DataOf(jpeg).size();
        for (std::size_t nCut = 0; nCut < jpeg.size(); ++nCut) {
            Bytes cut = Part(jpeg, 0, nCut);
            ASSERT_FALSE(Decode(cut)) << nCut;
            Append(cut, {0xFF, 0xD9});
            const FrameBlock block = Decode(Bytes(cut));
            ASSERT_FALSE(block && nCut < nData) << nCut;
            ASSERT_TRUE(block || nCut < nData || nInterval != 0) << nCut;
        }
    }
}

TEST(Codec, BadArgumentsAreUnreadable) {
    const Bytes jpeg = Encode(Recipe{});
    const auto nSize = Size(jpeg);
    std::int32_t nWidth = 7, nHeight = 8;
    ImageKind eKind{};
    EXPECT_FALSE(DecodeToFrameBlock(nullptr, 100));
    EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), 0));
    EXPECT_FALSE(DecodeToFrameBlock(jpeg.data(), -1));
    EXPECT_EQ(ProbeJpeg(jpeg.data(), 20, nWidth, nHeight, eKind), -1);
    EXPECT_EQ(nWidth, 7);
    std::uint8_t nByte = 0;
    EXPECT_EQ(DecodeJpegGrey(jpeg.data(), nSize, &nByte, -1), -5);
    EXPECT_EQ(DecodeJpegGrey(jpeg.data(), 20, &nByte, 1), -1);
    EXPECT_EQ(DecodeJpegYV12(jpeg.data(), 20, &nByte, 1, &nByte, 1, &nByte, 1), -1);
}

// What may be passed on of a stream; empty when its picture must be encoded.
Bytes Strip(const Bytes& jpeg) {
    Bytes out(jpeg.size() + 2, 0xEE);
    std::int32_t nSize = -1;
    const std::int32_t nResult = StripJpeg(jpeg.data(), Size(jpeg), out.data(), Size(out), &nSize);
    EXPECT_EQ(StripJpeg(jpeg.data(), Size(jpeg), out.data(), Size(jpeg) + 1, &nSize), ImageMustBeEncoded);
    EXPECT_EQ(nResult, nSize >= 0 ? ImageOk : ImageMustBeEncoded);
    return Part(out, 0, static_cast<std::size_t>(std::max(nSize, 0)));
}

// What other programs write besides the picture, and what nobody should.
TEST_P(Pictures, ArePassedOnByteForByteAndNothingElseIs) {
    const Bytes thumbnail = Encode({.nWidth = 16, .nHeight = 8});
    const auto named = [](std::string_view name, const Bytes& behind) {
        Bytes content(name.begin(), name.end());
        Append(content, behind);
        return content;
    };
    const Bytes exif = Segment(0xE1, named(std::string_view("Exif\0\0MM\0*", 10), thumbnail));
    const Bytes between[] = {
        exif,
        Segment(0xE0, named(std::string_view("JFXX\0\x10", 6), thumbnail)),
        Segment(0xE0, named(std::string_view("JFIF\0\1\2", 7), {})), // too short to be one
        Segment(0xE2, named(std::string_view("ICC_PROFILE\0\1\1", 14), Random(3000, 1))),
        Segment(0xEE, named("Addle, no Adobe", {})),
        Segment(0xFE, named("comment", {})),
        Segment(0xFE, {}),
        {1, 2, 3, 0xFF, 0, 4}, // no segment
        {0xFF, 0xFF, 0xFF},    // in front of a marker
        {0xFF, 0xD8},
    };
    for (const auto& [nInterval, bProgressive, eMarking] : {std::tuple{0, false, Marking::Jfif},
                                                            {3, false, Marking::JfifAndAdobe},
                                                            {7, true, Marking::Jfif},
                                                            {0, true, Marking::None},
                                                            {12, false, Marking::Adobe}}) {
        Recipe recipe = GetParam().Sized(75, 43, nInterval);
        recipe.bProgressive = bProgressive;
        recipe.bOptimised = nInterval == 7;
        recipe.eMarking = recipe.nComponents == 1 ? Marking::Jfif : eMarking;
        SCOPED_TRACE(recipe.Name());
        const Bytes jpeg = Encode(recipe);
        EXPECT_EQ(Strip(jpeg), jpeg);
        const std::size_t nScan = FindMarker(jpeg, 0xDA);
        for (const Bytes& piece : between) {
            Bytes dirty = jpeg;
            // In front of every marker, from behind so that the places in front stay right. Behind the first
            // scan what is no segment would be data, and behind a sequential one there is nothing to leave
            // out.
            for (std::size_t n = jpeg.size() - 1; n-- > 2;) {
                const std::uint8_t nMarker = jpeg[n + 1];
                const bool bSegment =
                    jpeg[n] == 0xFF && (nMarker == 0xC4 || (nMarker >= 0xD9 && nMarker < 0xFF));
                if (bSegment && (n <= nScan || (bProgressive && piece[0] == 0xFF)))
                    Insert(dirty, n, piece);
            }
            Append(dirty, thumbnail);
            EXPECT_EQ(Strip(dirty), jpeg) << testing::PrintToString(Part(piece, 0, 12));
        }
        if (recipe.eMarking == Marking::Jfif) { // with a thumbnail of two pixels inside
            Bytes dirty = jpeg;
            dirty[5] += 6;
            dirty[18] = 2;
            dirty[19] = 1;
            Insert(dirty, 20, {9, 8, 7, 6, 5, 4});
            EXPECT_EQ(Strip(dirty), jpeg);
        }
        EXPECT_EQ(Strip(Part(jpeg, 2)), jpeg);
    }
}

// Streams that are decoded here, while others may make something else of them or nothing.
TEST(Codec, PicturesThatAreNotByTheLetterMustBeEncoded) {
    const Bytes plain = Encode({.nRestartInterval = 1});
    const Bytes unmarked = Encode({.eMarking = Marking::None});
    const Bytes progressive = Encode({.bProgressive = true});
    const auto with = [](Bytes jpeg, std::size_t nAt, const Bytes& bytes) {
        std::ranges::copy(bytes, &jpeg[nAt]);
        return jpeg;
    };
    const auto inserted = [](Bytes jpeg, std::size_t nAt, const Bytes& bytes) {
        Insert(jpeg, nAt, bytes);
        return jpeg;
    };
    const std::size_t nFrame = FindMarker(plain, 0xC0), nScan = FindMarker(plain, 0xDA);
    const std::size_t nFirst = FindMarker(unmarked, 0xC0), nOnly = FindMarker(unmarked, 0xDA);
    Bytes wide; // as long as if it were 129 tables of bytes
    for (int i = 0; i < 65; ++i) {
        Append(wide, {0x13});
        for (int n = 0; n < 64; ++n)
            Append(wide, {0, 16});
    }
    const Bytes adobe = Segment(0xEE, {'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, 1});
    const Bytes scan = Part(plain, nScan, plain.size() - 2);
    std::size_t nRestart = nScan;
    while (plain[nRestart] != 0xFF || plain[nRestart + 1] != 0xD1)
        ++nRestart;
    std::size_t nSecondScan = FindMarker(progressive, 0xDA) + 2;
    while (progressive[nSecondScan] != 0xFF || progressive[nSecondScan + 1] != 0xDA)
        ++nSecondScan;
    struct Row {
        const char* szWhat;
        Bytes jpeg;
    };
    const Row rows[] = {
        {"16-bit quantisers", inserted(plain, nFrame, Segment(0xDB, wide))},
        {"a scan for each component", Encode({.bSeparateScans = true})},
        {"RGB", Encode({.nH = 1, .nV = 1, .bRgb = true})},
        {"components called RGB",
         with(
             with(with(with(with(with(unmarked, nFirst + 10, {'R'}), nFirst + 13, {'G'}), nFirst + 16, {'B'}),
                       nOnly + 5, {'R'}),
                  nOnly + 7, {'G'}),
             nOnly + 9, {'B'})},
        {"a restart out of turn", with(plain, nRestart, {0xFF, 0xD5})},
        {"a restart too many", inserted(plain, plain.size() - 2, {0xFF, 0xD3})},
        {"restarts of no interval", with(plain, FindMarker(plain, 0xDD) + 4, {0, 0})},
        {"a second pass", inserted(plain, plain.size() - 2, scan)},
        {"a comment behind the scan", inserted(plain, plain.size() - 2, Segment(0xFE, {}))},
        {"components in another order", with(plain, nScan + 7, {3, 0x11, 2, 0x11})},
        {"a band", with(plain, nScan + 12, {62})},
        {"a table of a third class", inserted(plain, nFrame, Segment(0xC4, with(Bytes(17), 0, {0x22})))},
        {"a code of ones", inserted(plain, nFrame, Segment(0xC4, with(Bytes(19), 0, {0x13, 2})))},
        {"a difference of 16 bits",
         inserted(plain, nFrame,
                  Segment(0xC4,
                          with(Bytes(18), 0, Bytes{3, 0, 1, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 16})))},
        {"colour behind a scan", inserted(progressive, nSecondScan, adobe)},
    };
    for (const auto& [szWhat, jpeg] : rows) {
        EXPECT_TRUE(Decode(jpeg)) << szWhat;
        EXPECT_EQ(Strip(jpeg), Bytes()) << szWhat;
    }
    EXPECT_EQ(Strip(Part(plain, 0, plain.size() - 2)), Bytes()) << "no end";
    EXPECT_EQ(Strip({0xFF, 0xD8, 0xFF, 0xD9}), Bytes()) << "no picture";
}

// The largest picture that the limits allow, of a few bytes: a frame of mid-grey, and no more memory than it.
TEST(Codec, LargestPictureFromAFewBytes) {
    Bytes jpeg = Encode(Recipe{});
    const std::size_t n = FindMarker(jpeg, 0xC0);
    std::ranges::copy(Bytes{0x04, 0x00, 0xFF, 0xDC}, &jpeg[n + 5]); // 1024 rows, 65500 columns
    jpeg.resize(FindMarker(jpeg, 0xDA) + 14);
    EXPECT_FALSE(Decode(jpeg));
    jpeg.insert(jpeg.end(), {0xFF, 0xD9});
    const FrameBlock block = Decode(jpeg);
    ASSERT_TRUE(block);
    const std::size_t nImage = std::size_t{65500} * 1024 * 3 / 2;
    ASSERT_EQ(block.size(), 40 + nImage);
    EXPECT_EQ(std::count(block.Planes(), block.Planes() + nImage, 128), nImage);
}

// The level and the instruction set that this processor should get, by the compiler's own account of it and,
// where that has no name for a feature in both compilers, the processor's.
std::string WantedVariant() {
    __builtin_cpu_init();
    if (__builtin_cpu_supports("avx")) {
        unsigned a = 0, b = 0, c = 0, d = 0;
        const bool bMovbe = __get_cpuid(1, &a, &b, &c, &d) != 0 && (c & bit_MOVBE) != 0;
        const bool bLzcnt = __get_cpuid(0x80000001, &a, &b, &c, &d) != 0 && (c & bit_LZCNT) != 0;
        const bool bWide = __builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi") &&
                           __builtin_cpu_supports("bmi2") && bLzcnt && __builtin_cpu_supports("popcnt") &&
                           bMovbe;
        const bool bWidest = bWide && __builtin_cpu_supports("avx512bw") &&
                             __builtin_cpu_supports("avx512dq") && __builtin_cpu_supports("avx512vl") &&
                             __builtin_cpu_supports("avx512vbmi2");
        return bWidest ? "4 AVX-512" : bWide ? "4 AVX2" : "4 AVX";
    }
    return __builtin_cpu_supports("sse4.1")  ? "3 SSE4.1"
           : __builtin_cpu_supports("ssse3") ? "2 SSSE3"
           : __builtin_cpu_supports("sse3")  ? "1 SSE2"
                                             : "0 C++";
}

TEST(Codec, FirstUseStartsTheKernelsOnAnyThread) {
    const Bytes jpeg = Encode({.nWidth = 400, .nHeight = 300}); // so large that the threads share its memory
    ASSERT_EQ(ippSelectVariant("0"), ippStsNoErr);
    g_nCodecStartState = ImageOk;
    const FrameBlock wanted = Decode(jpeg);
    ASSERT_TRUE(wanted);
    EXPECT_EQ(g_nKernelLevel, 0) << "started twice";
    g_nCodecStartState = 1;
    std::vector<std::thread> threads;
    for (int i = 0; i < 4; ++i) {
        threads.emplace_back([&] {
            for (int n = 0; n < 20; ++n) {
                const FrameBlock block = Decode(jpeg);
                ASSERT_TRUE(block);
                ASSERT_TRUE(std::equal(block.get(), block.get() + block.size(), wanted.get()));
            }
        });
    }
    for (auto& thread : threads)
        thread.join();
    EXPECT_EQ(g_nCodecStartState, 0);
    const char* szSet = "";
    ASSERT_EQ(ippxVariant(&szSet), ippStsNoErr);
    EXPECT_EQ(std::to_string(g_nKernelLevel) + " " + szSet, WantedVariant());
    g_nCodecStartState = -3;
    EXPECT_FALSE(Decode(jpeg));
    std::uint8_t nByte = 0;
    std::int32_t nSize = 0;
    EXPECT_EQ(DecodeJpegGrey(jpeg.data(), 1, &nByte, 1), -3);
    EXPECT_EQ(EncodeJpegGrey(&nByte, 1, 1, 75, &nByte, 1, &nSize, 1), -3);
    g_nCodecStartState = 0;
}

// A table like no other: codes of eight bits with their symbols in an order of its own.
void Shuffle(CJPEGDecoderHuffmanTable& table, unsigned n) {
    table.m_nClass = static_cast<std::int32_t>(n % 2);
    table.m_aBits[7] = 200;
    std::iota(table.m_aValues, table.m_aValues + 200, std::uint8_t{0});
    std::shuffle(table.m_aValues, table.m_aValues + 200, std::minstd_rand(n + 1));
}

// A shared table has no owner. Ever new ones fill the places that there are and no more, a thread holds on to
// a few, and those of Annex K stay where they were.
TEST(Codec, EqualTablesExistOnceAndNoStreamTakesThemAway) {
    constexpr unsigned kTables = 1000, kThreads = 4;
    CJPEGDecoderHuffmanTable standard;
    standard.m_nClass = 1;
    std::ranges::copy(StandardHuffmanTable(0, 1).bits, standard.m_aBits);
    std::ranges::copy(StandardHuffmanTable(0, 1).values, standard.m_aValues);
    const auto pStandard = CJPEGDecoderLookup::Find(standard);
    ASSERT_TRUE(pStandard);
    EXPECT_EQ(pStandard.use_count(), 0);
    std::vector<std::vector<const void*>> aShared(kThreads, std::vector<const void*>(kTables));
    std::vector<std::thread> threads;
    for (auto& apShared : aShared) {
        threads.emplace_back([&] {
            std::vector<std::weak_ptr<const CJPEGDecoderLookup>> own;
            for (unsigned n = 0; n < kTables; ++n) {
                CJPEGDecoderHuffmanTable table;
                Shuffle(table, n);
                const auto pLookup = CJPEGDecoderLookup::Find(table);
                ASSERT_TRUE(pLookup && pLookup->IsOf(table));
                if (pLookup.use_count() == 0)
                    apShared[n] = pLookup.get();
                else
                    own.emplace_back(pLookup);
            }
            EXPECT_LE(std::ranges::count_if(own, [](const auto& p) { return !p.expired(); }), 8);
            EXPECT_EQ(CJPEGDecoderLookup::Find(standard), pStandard);
        });
    }
    for (auto& thread : threads)
        thread.join();
    std::set<const void*> all;
    for (unsigned n = 0; n < kTables; ++n) {
        std::set<const void*> places;
        for (const auto& apShared : aShared)
            places.insert(apShared[n]);
        places.erase(nullptr);
        EXPECT_LE(places.size(), 1u) << "table " << n << " is there more than once";
        all.merge(places);
    }
    EXPECT_GT(all.size(), 0u);
    EXPECT_LE(all.size(), 28u);
}

} // namespace
