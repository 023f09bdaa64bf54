// A stream through the primary decoder, into memory of its own size.
#pragma once

#include "image/JpegSamples.h"
#include "image/jpegdec/JpegDecoder.h"

#include <gtest/gtest.h>

namespace samples {

struct Decode {
    // Into planes, whose chroma lacks an odd last column and row; grey has luma alone.
    explicit Decode(const Bytes& jpeg) {
        if (!Open(jpeg))
            return;
        y.assign(Area(nWidth, nHeight), 0x11);
        cb = cr = Bytes(Area(nWidth / 2, nHeight / 2), 0x11);
        PlanarDestination planes{y.data(), cb.data(), cr.data(), nWidth, nWidth / 2, nWidth / 2};
        Read(nChannels == 1 ? static_cast<void*>(y.data()) : &planes, nWidth, nChannels == 1 ? 1 : 3,
             nChannels == 1 ? JC_GRAY : JC_YCBCR420_PLANAR);
    }
    // Into pixels of those channels, with kGap bytes of 0x77 behind each row.
    Decode(const Bytes& jpeg, JpegColor eTo, int nToChannels) {
        if (!Open(jpeg))
            return;
        pixels.assign(Area(nWidth * nToChannels + kGap, nHeight), 0x77);
        Read(pixels.data(), nWidth * nToChannels + kGap, nToChannels, eTo);
    }
    // Into memory of the caller, said to be of that width.
    Decode(const Bytes& jpeg, void* pTo, int nToWidth, int nToChannels, JpegColor eTo) {
        if (Open(jpeg))
            Read(pTo, nToWidth, nToChannels, eTo, nToWidth);
    }
    bool SamePlanes(const Decode& other) const { return y == other.y && cb == other.cb && cr == other.cr; }

    static constexpr int kGap = 3;
    CJPEGDecoder decoder;
    std::int32_t nWidth = 0, nHeight = 0, nChannels = 0;
    JpegColor eColor = JC_UNKNOWN;
    JpegSampling eSampling = JS_OTHER;
    JpegStatus eHeader = JPEG_OK, eData = JPEG_OK;
    Bytes y, cb, cr, pixels;

private:
    static std::size_t Area(int nColumns, int nRows) { return nColumns * nRows; }
    bool Open(const Bytes& jpeg) {
        EXPECT_EQ(decoder.SetSource(jpeg.data(), Size(jpeg)), JPEG_OK);
        eHeader = decoder.ReadHeader(nWidth, nHeight, nChannels, eColor, eSampling);
        return eHeader == JPEG_OK;
    }
    void Read(void* pTo, int nStep, int nToChannels, JpegColor eTo, int nToWidth = 0) {
        const int nColumns = nToWidth != 0 ? nToWidth : nWidth;
        EXPECT_EQ(decoder.SetDestination(pTo, nColumns, nStep, nHeight, nToChannels, eTo), JPEG_OK);
        eData = decoder.ReadData();
    }
};

} // namespace samples
