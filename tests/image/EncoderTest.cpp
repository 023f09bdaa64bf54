// The encoder and its facade: the streams' bytes, statuses, limits, and what decoders make of the pictures.

#include "image/BlockKernels.h"
#include "image/ImageCodec.h"
#include "image/JpegSamples.h"
#include "image/KernelLevel.h"
#include "image/jpegenc/JpegEncoder.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <memory>
#include <random>
#include <string>

namespace {

using namespace samples;

// Gradients, edges and noise, in as many channels as asked for.
Bytes Picture(int nWidth, int nHeight, int nChannels, unsigned nSeed = 1) {
    std::minstd_rand random(nSeed);
    Bytes pixels(nWidth * nHeight * nChannels);
    for (std::size_t i = 0; i < pixels.size(); ++i) {
        const int x = static_cast<int>(i) / nChannels % nWidth;
        const int y = static_cast<int>(i) / nChannels / nWidth;
        int n = 30 + (2 * x + 3 * y + static_cast<int>(i) % nChannels * 40) % 190 +
                static_cast<int>(random() % 16);
        n = (x / 9 + y / 13) % 4 == 0 ? 255 - n : n;
        pixels[i] = static_cast<std::uint8_t>(std::clamp(n, 0, 255));
    }
    return pixels;
}

struct Form {
    int nWidth = 64;
    int nHeight = 48;
    JpegColor eFrom = JC_RGB;
    JpegColor eTo = JC_YCBCR;
    JpegSampling eSampling = JS_420;
    int nQuality = 75;
    int nRestart = 0;
    bool bProgressive = false;

    int Channels() const { return eFrom == JC_CMYK ? 4 : eFrom == JC_RGB || eFrom == JC_BGR ? 3 : 1; }
    std::string Name() const {
        return std::to_string(nWidth) + "x" + std::to_string(nHeight) + " " + std::to_string(eFrom) + "to" +
               std::to_string(eTo) + " s" + std::to_string(eSampling) + " q" + std::to_string(nQuality) +
               " r" + std::to_string(nRestart) + (bProgressive ? " progressive" : "");
    }
};

// The encoder, told of the picture and its form.
struct Encoder : CJPEGEncoder {
    Encoder(const Form& form, const Bytes& pixels) {
        const std::int64_t nArea = std::int64_t{form.nWidth} * form.nHeight;
        const std::int64_t nChroma = std::int64_t{form.nWidth / 2} * (form.nHeight / 2);
        planes = {pixels.data(), pixels.data() + nArea, pixels.data() + nArea + nChroma};
        const bool bPlanar = form.eFrom == JC_YCBCR420_PLANAR;
        EXPECT_EQ(SetSource(bPlanar ? static_cast<const void*>(&planes) : pixels.data(), form.nWidth,
                            form.nHeight, form.Channels(), form.nWidth * form.Channels(), form.eFrom),
                  JPEG_OK);
        EXPECT_EQ(SetParams(form.nQuality, form.eSampling, form.eTo, form.bProgressive, form.nRestart),
                  JPEG_OK);
    }
    PlanarSource planes{};
};

// Encodes into a buffer of exactly this capacity; what was written, up to the stream's length.
JpegStatus Write(const Form& form, const Bytes& pixels, std::int32_t nCapacity, Bytes& out) {
    const std::unique_ptr<std::uint8_t[]> buffer(new std::uint8_t[nCapacity + 1]);
    buffer[nCapacity] = 0x5A; // capacity 0 needs an address
    Encoder encoder(form, pixels);
    std::int32_t nSize = nCapacity;
    const JpegStatus eStatus = form.bProgressive ? encoder.WriteImageProgressive(buffer.get(), &nSize)
                                                 : encoder.WriteImage(buffer.get(), &nSize);
    EXPECT_EQ(buffer[nCapacity], 0x5A) << "written behind the capacity";
    EXPECT_LE(encoder.m_nDstPos, nCapacity);
    if (eStatus != JPEG_OK) {
        EXPECT_EQ(nSize, nCapacity) << "the capacity stays";
        nSize = encoder.m_nDstPos;
    }
    out.assign(buffer.get(), buffer.get() + nSize);
    return eStatus;
}

Bytes MustWrite(const Form& form, const Bytes& pixels) {
    Bytes out;
    EXPECT_EQ(Write(form, pixels, 1 << 20, out), JPEG_OK) << form.Name();
    return out;
}

Bytes MustWrite(const Form& form) {
    const int nSamples = form.eFrom == JC_YCBCR420_PLANAR ? 2 : form.Channels();
    return MustWrite(form, Picture(form.nWidth, form.nHeight, nSamples));
}

// The markers in order, without those of restarts; DHT and DQT with their class and identifier byte.
std::string Segments(const Bytes& jpeg) {
    std::string names;
    for (std::size_t i = 0; i + 1 < jpeg.size(); ++i) {
        if (jpeg[i] != 0xFF || jpeg[i + 1] == 0 || (jpeg[i + 1] & 0xF8) == 0xD0)
            continue;
        const int nMarker = jpeg[i + 1];
        char szName[16];
        const bool bTable = nMarker == 0xC4 || nMarker == 0xDB;
        std::snprintf(szName, sizeof szName, bTable ? "%02X.%02X " : "%02X ", nMarker,
                      jpeg[i + 4 < jpeg.size() ? i + 4 : 0]);
        names += szName;
        if (nMarker != 0xD8 && nMarker != 0xD9)
            i += 1 + (std::size_t{jpeg[i + 2]} << 8 | jpeg[i + 3]);
    }
    return names;
}

TEST(Encoding, HeadOfAGreyStream) {
    const Bytes jpeg = MustWrite({.nWidth = 300, .nHeight = 9, .eFrom = JC_GRAY, .eTo = JC_GRAY});
    const Bytes head = {0xFF, 0xD8, 0xFF, 0xE0, 0,    16,  'J',  'F',  'I', 'F', 0,   1,   2,   0,
                        0,    1,    0,    1,    0,    0,   0xFF, 0xFE, 0,   23,  'N', 'o', 'r', 'v',
                        'a',  'n',  'e',  ' ',  'J',  'P', 'E',  'G',  ' ', 'E', 'n', 'c', 'o', 'd',
                        'e',  'r',  0,    0xFF, 0xDB, 0,   67,   0,    8,   6,   6};
    EXPECT_EQ(Part(jpeg, 0, head.size()), head);
    EXPECT_EQ(Segments(jpeg), "D8 E0 FE DB.00 C0 C4.00 C4.10 DA D9 ");
    EXPECT_EQ(SegmentOf(jpeg, 0xC0), (Bytes{0xFF, 0xC0, 0, 11, 8, 0, 9, 1, 44, 1, 0, 0x11, 0}));
    EXPECT_EQ(SegmentOf(jpeg, 0xDA), (Bytes{0xFF, 0xDA, 0, 8, 1, 0, 0, 0, 63, 0}));
}

TEST(Encoding, OrderOfTheSegments) {
    const std::string strTables = "C4.00 C4.01 C4.10 C4.11 ";
    const struct {
        Form form;
        std::string strSegments;
    } aRows[] = {
        {{}, "D8 E0 FE DB.00 DB.01 C0 " + strTables + "DA D9 "},
        {{.nRestart = 3}, "D8 E0 FE DB.00 DB.01 C0 " + strTables + "DD DA D9 "},
        {{.eTo = JC_RGB, .eSampling = JS_444}, "D8 EE FE DB.00 DB.01 C0 " + strTables + "DA D9 "},
        {{.eFrom = JC_CMYK, .eTo = JC_YCCK}, "D8 EE FE DB.00 DB.01 C0 " + strTables + "DA D9 "},
        {{.eTo = JC_GRAY}, "D8 E0 FE DB.00 C0 C4.00 C4.10 DA D9 "},
        {{.eFrom = JC_UNKNOWN, .eTo = JC_UNKNOWN}, "D8 FE DB.00 C0 C4.00 C4.10 DA D9 "},
        {{.nRestart = 3, .bProgressive = true},
         "D8 E0 FE DB.00 DB.01 C2 DD C4.00 C4.01 DA C4.10 DA C4.11 DA C4.11 DA C4.10 DA C4.10 DA DA "
         "C4.11 DA C4.11 DA C4.10 DA D9 "},
        {{.eTo = JC_RGB, .bProgressive = true},
         "D8 EE FE DB.00 C2 C4.00 C4.01 DA C4.10 DA C4.11 DA C4.11 DA C4.10 DA C4.10 DA DA C4.11 DA "
         "C4.11 DA C4.10 DA D9 "},
        {{.eFrom = JC_GRAY, .eTo = JC_GRAY, .bProgressive = true},
         "D8 E0 FE DB.00 C2 C4.00 DA C4.10 DA C4.10 DA C4.10 DA DA C4.10 DA D9 "},
    };
    for (const auto& row : aRows)
        EXPECT_EQ(Segments(MustWrite(row.form)), row.strSegments) << row.form.Name();
    // The factors and selectors of planes, and the transform that the Adobe segment tells.
    const Bytes frame = SegmentOf(MustWrite({.eFrom = JC_YCBCR420_PLANAR}), 0xC0);
    EXPECT_EQ(Part(frame, 9), (Bytes{3, 0, 0x22, 0, 1, 0x11, 1, 2, 0x11, 1}));
    const Bytes ycck = MustWrite({.eFrom = JC_CMYK, .eTo = JC_YCCK, .eSampling = JS_422});
    EXPECT_EQ(Part(ycck, 2, 18), (Bytes{0xFF, 0xEE, 0, 14, 'A', 'd', 'o', 'b', 'e', 0, 100, 0, 0, 0, 0, 2}));
}

TEST(Encoding, QualityMakesTheTables) {
    const auto tables = [](int nQuality) {
        Bytes both;
        for (const Bytes& segment : SegmentsOf(MustWrite({.nQuality = nQuality}), 0xDB))
            Append(both, Part(segment, 5));
        return both;
    };
    EXPECT_EQ(tables(100), Bytes(128, 1));
    const Bytes plain = tables(50), coarse = tables(1);
    // The first and last of K.1 and K.2 in zigzag order.
    EXPECT_EQ(Part(plain, 0, 6), (Bytes{16, 11, 12, 14, 12, 10}));
    EXPECT_EQ(Part(plain, 64, 70), (Bytes{17, 18, 18, 24, 21, 24}));
    EXPECT_EQ(plain[63], 99);
    EXPECT_EQ(coarse, Bytes(128, 255));
    EXPECT_EQ(Part(tables(30), 0, 2), (Bytes{27, 18})); // 5000 / 30 is 166
    Bytes out;
    EXPECT_EQ(Write({.nQuality = 0}, Picture(64, 48, 3), 1 << 16, out), JPEG_INTERNAL_ERROR);
    EXPECT_TRUE(out.empty());
}

// Every second MCU, counted round; the markers stand on byte borders behind a fill of ones.
TEST(Encoding, RestartsCountRound) {
    for (const bool bGrey : {false, true}) {
        Form form{.nWidth = 200, .nHeight = 50, .nRestart = 2};
        form.eTo = bGrey ? JC_GRAY : JC_YCBCR;
        const Bytes jpeg = MustWrite(form);
        std::string strFound, strWanted;
        for (std::size_t i = FindMarker(jpeg, 0xDA) + 2; i + 1 < jpeg.size(); ++i) {
            if (jpeg[i] == 0xFF && jpeg[i + 1] >= 0xD0 && jpeg[i + 1] <= 0xD7)
                strFound += static_cast<char>('0' + (jpeg[i + 1] & 7));
        }
        const int nMcus = bGrey ? 25 * 7 : 13 * 4;
        for (int i = 0; i < (nMcus - 1) / 2; ++i)
            strWanted += static_cast<char>('0' + i % 8);
        EXPECT_EQ(strFound, strWanted);
        // Restarts change the stream, not the picture.
        Form plain = form;
        plain.nRestart = 0;
        const auto with = DecodeRaw(jpeg), without = DecodeRaw(MustWrite(plain));
        for (std::size_t c = 0; c < with.size(); ++c)
            EXPECT_EQ(with[c].aSamples, without[c].aSamples);
    }
}

TEST(Encoding, RefusesWhatItCannotTell) {
    const Bytes pixels = Picture(64, 48, 4);
    const struct {
        Form form;
        JpegStatus eStatus;
    } aRows[] = {
        {{.eFrom = JC_GRAY}, JPEG_NOT_SUPPORTED},                                 // grey to YCbCr
        {{.eFrom = JC_BGR, .eTo = JC_RGB}, JPEG_NOT_SUPPORTED},                   //
        {{.eFrom = JC_YCBCR420_PLANAR, .eSampling = JS_444}, JPEG_NOT_SUPPORTED}, // planes as they are
        {{.eSampling = JS_OTHER}, JPEG_NOT_SUPPORTED},                            //
        {{.nRestart = 65536}, JPEG_NOT_SUPPORTED},                                //
        {{.nRestart = -1}, JPEG_NOT_SUPPORTED},                                   //
        {{.nWidth = 0}, JPEG_INTERNAL_ERROR},                                     //
        {{.nHeight = -7}, JPEG_INTERNAL_ERROR},                                   //
        {{.nWidth = 65501, .nHeight = 1}, JPEG_NOT_SUPPORTED}, // beyond the decoder's limit
        {{.nWidth = 65000, .nHeight = 65000, .eFrom = JC_GRAY, .eTo = JC_GRAY}, JPEG_NOT_SUPPORTED},
    };
    for (const auto& row : aRows) {
        Encoder encoder(row.form, pixels);
        std::uint8_t aOut[4096];
        std::int32_t nSize = sizeof aOut;
        EXPECT_EQ(encoder.WriteImage(aOut, &nSize), row.eStatus) << row.form.Name();
        EXPECT_EQ(encoder.WriteImageProgressive(aOut, &nSize), row.eStatus) << row.form.Name();
        EXPECT_EQ(encoder.m_nDstPos, 0);
    }
    CJPEGEncoder narrow;
    std::uint8_t aOut[4096];
    std::int32_t nSize = sizeof aOut;
    EXPECT_EQ(narrow.SetSource(pixels.data(), 64, 48, 3, 191, JC_RGB), JPEG_OK);
    EXPECT_EQ(narrow.SetParams(75, JS_420, JC_YCBCR, false, 0), JPEG_OK);
    EXPECT_EQ(narrow.WriteImage(aOut, &nSize), JPEG_INTERNAL_ERROR);
    EXPECT_EQ(narrow.WriteImage(nullptr, &nSize), JPEG_INTERNAL_ERROR);
    EXPECT_EQ(narrow.WriteImage(aOut, nullptr), JPEG_INTERNAL_ERROR);
}

// Every capacity from none to the whole stream: headers stop with one status, data with the other, and a byte
// more than the stream's length is what it takes.
TEST(Encoding, EveryCapacity) {
    for (const bool bProgressive : {false, true}) {
        const Form form{.nWidth = 40, .nHeight = 21, .nRestart = 2, .bProgressive = bProgressive};
        const Bytes pixels = Picture(form.nWidth, form.nHeight, 3);
        const Bytes whole = MustWrite(form, pixels);
        const auto nWhole = static_cast<std::int32_t>(whole.size());
        const auto nData = static_cast<std::int32_t>(FindMarker(whole, 0xDA)) + 14;
        for (std::int32_t n = 0; n <= nWhole + 1; ++n) {
            Bytes out;
            const JpegStatus eStatus = Write(form, pixels, n, out);
            ASSERT_TRUE(std::equal(out.begin(), out.end(), whole.begin())) << n;
            const bool bInData = n > nData && n < nWhole - 2;
            const JpegStatus eWanted = n > nWhole ? JPEG_OK
                                       : bInData  ? JPEG_INTERNAL_ERROR
                                                  : JPEG_BUFFER_EXHAUSTED;
            // Between two scans of a progressive stream there are more headers.
            if (!bProgressive || !bInData || eStatus != JPEG_BUFFER_EXHAUSTED) {
                ASSERT_EQ(eStatus, eWanted) << n;
            }
        }
    }
}

// Root of the mean square error of a decoded component against what was encoded, over whole pictures.
double Distance(const Plane& got, const std::uint8_t* pWanted, int nWidth, int nHeight, int nStep,
                int nPixel = 1) {
    double sum = 0;
    for (int y = 0; y < nHeight; ++y) {
        for (int x = 0; x < nWidth; ++x) {
            const double error = got.At(x, y) - pWanted[y * nStep + x * nPixel];
            sum += error * error;
        }
    }
    return std::sqrt(sum / nWidth / nHeight);
}

// What the facade's operations write.
Bytes WriteGrey(const std::uint8_t* pY, int nWidth, int nHeight, int nQuality, int nStep = 0) {
    Bytes out(1 << 16);
    std::int32_t nSize = 0;
    EXPECT_EQ(EncodeJpegGrey(pY, nWidth, nHeight, nQuality, out.data(), Size(out), &nSize, nStep), ImageOk);
    return Part(out, 0, nSize);
}

Bytes WritePlanes(const std::uint8_t* pY, const std::uint8_t* pCr, const std::uint8_t* pCb, int nWidth,
                  int nHeight, int nQuality, int nStep = 0) {
    Bytes out(1 << 16);
    std::int32_t nSize = 0;
    EXPECT_EQ(EncodeJpegYV12(pY, pCr, pCb, nWidth, nHeight, nQuality, out.data(), Size(out), &nSize, nStep),
              ImageOk);
    return Part(out, 0, nSize);
}

// All sizes around the borders of blocks and MCUs, from planes in memory of exactly their size (ASan guards
// the reads): both decoders get the picture, within what steps of 1 leave.
TEST(Encoding, OddSizesOfPlanes) {
    for (const int w : {1, 2, 3, 7, 8, 9, 15, 16, 17, 31, 33, 101}) {
        for (const int h : {1, 2, 5, 8, 15, 16, 17, 35}) {
            SCOPED_TRACE(std::to_string(w) + "x" + std::to_string(h));
            const Bytes y = Picture(w, h, 1, 1);
            const Bytes cb = Picture(std::max(w / 2, 1), h / 2, 1, 2),
                        cr = Picture(std::max(w / 2, 1), h / 2, 1, 3);
            const Bytes jpeg = WritePlanes(y.data(), cr.data(), cb.data(), w, h, 100);
            const auto planes = DecodeRaw(jpeg);
            ASSERT_EQ(planes.size(), 3u);
            EXPECT_LE(Distance(planes[0], y.data(), w, h, w), 1.0);
            if (w > 1 && h > 1) {
                EXPECT_LE(Distance(planes[1], cb.data(), w / 2, h / 2, w / 2), 1.0);
                EXPECT_LE(Distance(planes[2], cr.data(), w / 2, h / 2, w / 2), 1.0);
            } else {
                EXPECT_EQ(planes[1].At(0, 0), 128);
            }
            // Beyond the right edge stands the last sample.
            if (w % 16 != 0 && planes[0].nWidth > w) {
                EXPECT_NEAR(planes[0].At(w, 0), y[w - 1], 3);
            }
            const FrameBlock block = DecodeToFrameBlock(jpeg.data(), Size(jpeg));
            ASSERT_TRUE(block);
            for (std::size_t i = 0; i < y.size(); ++i)
                ASSERT_NEAR(block.Planes()[i], y[i], 4);
            EXPECT_LE(Distance(DecodeRaw(WriteGrey(y.data(), w, h, 100))[0], y.data(), w, h, w), 1.0);
        }
    }
}

// Strides: a grey picture and planes cut out of wider ones are what they are by themselves.
TEST(Encoding, StridesAreKept) {
    const int w = 50, h = 34, nStep = 71;
    const Bytes wide = Picture(nStep, h * 2, 1);
    const auto cut = [&](const std::uint8_t* p, int nColumns, int nRows, int nFrom) {
        Bytes plane;
        for (int y = 0; y < nRows; ++y)
            plane.insert(plane.end(), p + y * nFrom, p + y * nFrom + nColumns);
        return plane;
    };
    const Bytes y = cut(wide.data(), w, h, nStep);
    EXPECT_EQ(WriteGrey(wide.data(), w, h, 80, nStep), WriteGrey(y.data(), w, h, 80));
    const std::uint8_t* const pChroma = wide.data() + 100; // half of an odd stride is rounded down
    const Bytes c = cut(pChroma, w / 2, h / 2, nStep / 2);
    EXPECT_EQ(WritePlanes(wide.data(), pChroma, pChroma, w, h, 80, nStep),
              WritePlanes(y.data(), c.data(), c.data(), w, h, 80));
}

TEST(Encoding, FacadeRefusals) {
    const Bytes y = Picture(16, 16, 1);
    std::uint8_t aOut[2048];
    std::fill(std::begin(aOut), std::end(aOut), std::uint8_t{0x5A});
    std::int32_t nSize = -7;
    const struct {
        const std::uint8_t* pPixels;
        int nQuality;
        std::uint8_t* pOut;
        std::int32_t nCapacity;
        std::int32_t* pSize;
        int nStep;
    } aRows[] = {{y.data(), 75, aOut, 1, &nSize, 0},     {y.data(), 75, aOut, 300, &nSize, 0},
                 {y.data(), 75, aOut, -1, &nSize, 0},    {y.data(), 0, aOut, 2048, &nSize, 0},
                 {y.data(), 75, aOut, 2048, &nSize, 15}, {y.data(), 75, aOut, 2048, &nSize, -16},
                 {nullptr, 75, aOut, 2048, &nSize, 0},   {y.data(), 75, nullptr, 2048, &nSize, 0},
                 {y.data(), 75, aOut, 2048, nullptr, 0}};
    for (const auto& [pPixels, nQuality, pOut, nCapacity, pSize, nStep] : aRows) {
        EXPECT_EQ(EncodeJpegGrey(pPixels, 16, 16, nQuality, pOut, nCapacity, pSize, nStep),
                  ImageEncodeFailed);
        EXPECT_EQ(aOut[nCapacity == 1 ? 0 : 300], 0x5A);
    }
    EXPECT_EQ(EncodeJpegYV12(y.data(), nullptr, y.data(), 16, 16, 75, aOut, 2048, &nSize, 0),
              ImageEncodeFailed);
    EXPECT_EQ(nSize, -7);
    EXPECT_EQ(EncodeJpegGrey(y.data(), 16, 16, 75, aOut, 2048, &nSize, 0), ImageOk);
    EXPECT_EQ(aOut[nSize], 0x5A);
}

// Each pair of colours, sampling and kind of stream: the components that libjpeg finds are the pixels after
// the conversion, halved where the sampling says so, within what steps of 1 leave.
class EncodedColours : public testing::TestWithParam<std::tuple<JpegColor, JpegColor, JpegSampling>> {};

// A component of a pixel by the equations of JFIF.
double Component(const std::uint8_t* pPixel, JpegColor eFrom, JpegColor eTo, std::size_t c) {
    if (eFrom == eTo || c == 3)
        return pPixel[c];
    const auto at = [&](int n) { return eFrom == JC_CMYK ? 255 - pPixel[n] : pPixel[n]; };
    const double r = at(eFrom == JC_BGR ? 2 : 0), g = at(1), b = at(eFrom == JC_BGR ? 0 : 2);
    return c == 0   ? 0.299 * r + 0.587 * g + 0.114 * b
           : c == 1 ? 128 - 0.168736 * r - 0.331264 * g + 0.5 * b
                    : 128 + 0.5 * r - 0.418688 * g - 0.081312 * b;
}

TEST_P(EncodedColours, ComeBack) {
    const auto [eFrom, eTo, eSampling] = GetParam();
    Form form{
        .nWidth = 61, .nHeight = 43, .eFrom = eFrom, .eTo = eTo, .eSampling = eSampling, .nQuality = 100};
    const int nChannels = form.Channels();
    const Bytes pixels = Picture(form.nWidth, form.nHeight, nChannels);
    const auto planes = DecodeRaw(MustWrite(form, pixels));
    const std::size_t nComponents = eTo == JC_GRAY ? 1 : nChannels == 4 ? 4 : 3;
    ASSERT_EQ(planes.size(), nComponents);
    for (std::size_t c = 0; c < nComponents; ++c) {
        const bool bHalf = eSampling != JS_444 && (c == 1 || c == 2);
        const int nH = bHalf ? 2 : 1, nV = bHalf && eSampling == JS_420 ? 2 : 1;
        const int w = (form.nWidth + nH - 1) / nH, h = (form.nHeight + nV - 1) / nV;
        double fSquares = 0;
        for (int i = 0; i < w * h; ++i) {
            double fWanted = 0;
            for (int n = 0; n < nH * nV; ++n) {
                const int x = std::min(i % w * nH + n % nH, form.nWidth - 1);
                const int y = std::min(i / w * nV + n / nH, form.nHeight - 1);
                fWanted += Component(&pixels[(y * form.nWidth + x) * nChannels], eFrom, eTo, c) / (nH * nV);
            }
            const double fError = planes[c].At(i % w, i / w) - fWanted;
            fSquares += fError * fError / (w * h);
        }
        EXPECT_LE(std::sqrt(fSquares), 0.6) << "component " << c;
    }
    // A progressive stream, with and without restarts, holds the coefficients of the sequential one: those of
    // blocks that only fill up MCUs alone are not in its AC scans.
    for (const int nRestart : {0, 5}) {
        form.bProgressive = true;
        form.nRestart = nRestart;
        const auto progressive = DecodeRaw(MustWrite(form, pixels));
        for (std::size_t c = 0; c < nComponents; ++c) {
            const bool bHalf = eSampling != JS_444 && (c == 1 || c == 2);
            const int w = bHalf ? (form.nWidth + 1) / 2 : form.nWidth;
            const int h = bHalf && eSampling == JS_420 ? (form.nHeight + 1) / 2 : form.nHeight;
            for (int i = 0; i < w * h; ++i)
                ASSERT_EQ(progressive[c].At(i % w, i / w), planes[c].At(i % w, i / w)) << c << ' ' << i;
        }
    }
}

INSTANTIATE_TEST_SUITE_P(
    Pairs, EncodedColours,
    testing::Values(std::tuple{JC_GRAY, JC_GRAY, JS_444}, std::tuple{JC_GRAY, JC_GRAY, JS_420},
                    std::tuple{JC_RGB, JC_GRAY, JS_444}, std::tuple{JC_RGB, JC_RGB, JS_444},
                    std::tuple{JC_RGB, JC_RGB, JS_420}, std::tuple{JC_RGB, JC_YCBCR, JS_444},
                    std::tuple{JC_RGB, JC_YCBCR, JS_422}, std::tuple{JC_RGB, JC_YCBCR, JS_420},
                    std::tuple{JC_BGR, JC_YCBCR, JS_420}, std::tuple{JC_CMYK, JC_CMYK, JS_444},
                    std::tuple{JC_CMYK, JC_CMYK, JS_422}, std::tuple{JC_CMYK, JC_YCCK, JS_420}));

// Blocks that are hard for the coders: long runs of ends of band with corrections, and every size of value.
TEST(Encoding, ProgressiveOfExtremes) {
    for (const unsigned nSeed : {1u, 2u, 3u}) {
        std::minstd_rand random(nSeed);
        // Wide: the data of one row of MCUs is more than the writer holds back.
        Form form{.nWidth = 2080, .nHeight = 130, .eFrom = JC_GRAY, .eTo = JC_GRAY, .nQuality = 100};
        Bytes pixels(2080 * 130);
        for (std::size_t i = 0; i < pixels.size(); ++i) {
            const auto nNoise = static_cast<unsigned>(random());
            pixels[i] = static_cast<std::uint8_t>(nSeed == 1   ? (nNoise % 2) * 255
                                                  : nSeed == 2 ? 128 + (nNoise % 4096 == 0)
                                                               : i / 16 % 256 + nNoise % 3);
        }
        const auto sequential = DecodeRaw(MustWrite(form, pixels));
        form.bProgressive = true;
        EXPECT_EQ(DecodeRaw(MustWrite(form, pixels))[0].aSamples, sequential[0].aSamples) << nSeed;
    }
}

// A stream holds what the block kernels make of the picture one after the other: of a sequential one the
// bytes of the data, of a progressive one the coefficients, whose scans go through the block kernels anyway.
using EncoderLevels = AtKernelLevel;
INSTANTIATE_TEST_SUITE_P(All, EncoderLevels, EveryKernelLevel(), KernelLevelName);

// The quantised coefficients of planes in coding order, block after block of each MCU.
std::vector<std::vector<Block>> CoefficientsOf(const std::vector<Plane>& planes, const Form& form) {
    std::vector<std::vector<Block>> components(planes.size());
    for (std::size_t c = 0; c < planes.size(); ++c) {
        CJPEGEncoderQuantTable quant;
        EXPECT_EQ(quant.Init(c == 0 ? 0 : 1, form.nQuality), 0);
        const Plane& plane = planes[c];
        for (int y = 0; y < plane.nHeight; y += 8) {
            for (int x = 0; x < plane.nWidth; x += 8) {
                EXPECT_EQ(ippiDCTQuantFwd8x8LS_JPEG_8u16s_C1R(
                              &plane.aSamples[y * plane.nWidth + x], plane.nWidth,
                              components[c].emplace_back().data(), quant.m_aFactors),
                          0);
            }
        }
    }
    return components;
}

// A plane of whole blocks, the edges repeated.
Plane Padded(const std::uint8_t* p, int nWidth, int nHeight, int nToWidth, int nToHeight) {
    Plane plane{nToWidth, nToHeight, {}};
    for (int i = 0; i < nToWidth * nToHeight; ++i)
        plane.aSamples.push_back(
            p[std::min(i / nToWidth, nHeight - 1) * nWidth + std::min(i % nToWidth, nWidth - 1)]);
    return plane;
}

TEST_P(EncoderLevels, StreamsAreThoseOfTheBlockKernels) {
    for (const bool bGrey : {false, true}) {
        for (const int nQuality : {1, 30, 75, 96, 100}) {
            const Form form{.nWidth = 203,
                            .nHeight = 75,
                            .eFrom = bGrey ? JC_GRAY : JC_YCBCR420_PLANAR,
                            .eTo = bGrey ? JC_GRAY : JC_YCBCR,
                            .nQuality = nQuality};
            SCOPED_TRACE(form.Name());
            const Bytes pixels = Picture(203, 75, 2);
            const int nMcu = bGrey ? 8 : 16, w = (203 + nMcu - 1) / nMcu * nMcu,
                      h = (75 + nMcu - 1) / nMcu * nMcu;
            std::vector<Plane> planes{Padded(pixels.data(), 203, 75, w, h)};
            for (int c = 0; c < 2 && !bGrey; ++c)
                planes.push_back(Padded(pixels.data() + 203 * 75 + c * 101 * 37, 101, 37, w / 2, h / 2));
            const auto wanted = CoefficientsOf(planes, form);

            const Bytes stream = MustWrite(form, pixels);
            BlockWriter writer{Bytes(1 << 20)};
            CJPEGEncoderHuffmanTable aDc[2], aAc[2];
            for (int i = 0; i < 2; ++i) {
                ASSERT_EQ(aDc[i].InitStandard(i, 0), 0);
                ASSERT_EQ(aAc[i].InitStandard(i, 1), 0);
            }
            std::int16_t anLast[3] = {};
            for (int nAt = 0; nAt < w / nMcu * (h / nMcu); ++nAt) {
                for (std::size_t c = 0; c < planes.size(); ++c) {
                    const int nSide = !bGrey && c == 0 ? 2 : 1, nTable = c == 0 ? 0 : 1;
                    for (int n = 0; n < nSide * nSide; ++n) {
                        const int x = nAt % (w / nMcu) * nSide + n % nSide,
                                  y = nAt / (w / nMcu) * nSide + n / nSide;
                        const Block& block = wanted[c][y * planes[c].nWidth / 8 + x];
                        ASSERT_EQ(writer.Write(block.data(), aDc[nTable].m_pSpec.get(),
                                               aAc[nTable].m_pSpec.get(), anLast[c]),
                                  0);
                    }
                }
            }
            Bytes data = writer.Flush();
            Append(data, {0xFF, 0xD9});
            EXPECT_EQ(DataOf(stream), data);

            Form progressive = form;
            progressive.bProgressive = true;
            const auto coded = ReadCoefficients(MustWrite(progressive, pixels));
            ASSERT_EQ(coded.size(), planes.size());
            for (std::size_t c = 0; c < coded.size(); ++c) {
                // Blocks that only fill up MCUs are in DC scans alone.
                const int nCols = ((c == 0 ? 203 : 102) + 7) / 8, nRows = ((c == 0 ? 75 : 38) + 7) / 8;
                for (int y = 0; y < nRows; ++y) {
                    for (int x = 0; x < nCols; ++x)
                        ASSERT_EQ(coded[c][y * planes[c].nWidth / 8 + x],
                                  wanted[c][y * planes[c].nWidth / 8 + x])
                            << c << ' ' << x << ' ' << y;
                }
            }
        }
    }
}

} // namespace
