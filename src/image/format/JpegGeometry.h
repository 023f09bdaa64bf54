// How large a picture may be, how its components are sampled, and the grid of MCUs that covers it.
#pragma once

#include <cstdint>

#include "image/kernels/Memory.h"

// Checked once an engine, in the frame header: width and height come from hostile bytes and everything below
// allocates by them. 65500 a side is what other codecs of this format take. 64 megapixels are more than any
// phone's or camera's sensor sends, and keep even three bytes a pixel (192 MiB) inside 32-bit sizes.
inline constexpr std::int32_t kJpegMaxSide = 65500;
inline constexpr std::int64_t kJpegMaxPixels = std::int64_t{1} << 26;

// Neither side is zero, and both together keep the limits. Any values may be asked about.
constexpr bool IsPictureSizeAllowed(std::int32_t nWidth, std::int32_t nHeight) {
    return nWidth >= 1 && nHeight >= 1 && nWidth <= kJpegMaxSide && nHeight <= kJpegMaxSide &&
           std::int64_t{nWidth} * nHeight <= kJpegMaxPixels;
}

// How many units of `nBy` it takes to cover `n`. Both above 0.
constexpr std::int32_t CeilDivide(std::int32_t n, std::int32_t nBy) {
    return n / nBy + (n % nBy != 0 ? 1 : 0);
}

// Kernels take strides of 32 bits above zero. Any other is 0 here, which they refuse.
constexpr std::int32_t KernelStep(std::int64_t nStep) {
    return nStep > 0 && nStep <= INT32_MAX ? static_cast<std::int32_t>(nStep) : 0;
}

// By the luma factors against those of chroma.
enum JpegSampling : std::int32_t {
    JS_444 = 0,   // all components 1x1
    JS_422 = 1,   // component 0 (and 3) 2x1, the others 1x1
    JS_420 = 2,   // component 0 (and 3) 2x2, the others 1x1
    JS_OTHER = 3, // anything else; cannot be decoded
};

// Cb and Cr, or what stands in their places.
constexpr bool IsChroma(std::int32_t nComponent) {
    return nComponent == 1 || nComponent == 2;
}

// 2 where a component has half the picture's width or height, else 1.
constexpr std::int32_t HorizontalFactor(JpegSampling eSampling, std::int32_t nComponent) {
    return eSampling != JS_444 && IsChroma(nComponent) ? 2 : 1;
}
constexpr std::int32_t VerticalFactor(JpegSampling eSampling, std::int32_t nComponent) {
    return eSampling == JS_420 && IsChroma(nComponent) ? 2 : 1;
}

// The sampling of nCount components, by isFactors(i, nH, nV): whether component i has these factors.
template <class IsFactors>
constexpr JpegSampling SamplingOf(std::int32_t nCount, IsFactors isFactors) {
    const auto all = [&](std::int32_t nH, std::int32_t nV) {
        for (std::int32_t i = 0; i < nCount; ++i) {
            const bool bLuma = i == 0 || i == 3;
            if (!isFactors(i, bLuma ? nH : 1, bLuma ? nV : 1))
                return false;
        }
        return true;
    };
    return all(1, 1) ? JS_444 : all(2, 1) ? JS_422 : all(2, 2) ? JS_420 : JS_OTHER;
}

// The grid, in samples of full resolution, as primary decoder and encoder have it among their fields.
struct JpegGrid {
    std::int32_t m_nMcuCols = 0;
    std::int32_t m_nMcuRows = 0;
    std::int32_t m_nMcuWidth = 0;
    std::int32_t m_nMcuHeight = 0;
    std::int32_t m_nCcWidth = 0; // row of a component's m_pCcBuffer
    std::int32_t m_nCcHeight = 0;
    std::int32_t m_nPadX = 0; // coded columns and rows beyond the picture
    std::int32_t m_nPadY = 0;

    void CountMcus(JpegSampling eSampling, std::int32_t nWidth, std::int32_t nHeight) {
        m_nMcuWidth = eSampling == JS_444 ? 8 : 16;
        m_nMcuHeight = eSampling == JS_420 ? 16 : 8;
        m_nMcuCols = CeilDivide(nWidth, m_nMcuWidth);
        m_nMcuRows = CeilDivide(nHeight, m_nMcuHeight);
    }
    // Of a picture within the limits, whose MCUs are counted.
    void MeasurePads(std::int32_t nWidth, std::int32_t nHeight) {
        m_nCcWidth = m_nMcuCols * m_nMcuWidth;
        m_nCcHeight = m_nMcuHeight;
        m_nPadX = m_nCcWidth - nWidth;
        m_nPadY = m_nMcuRows * m_nMcuHeight - nHeight;
    }
};

// One colour component of a frame: what the headers say of it, and its buffers.
class CJPEGColorComponent final {
public:
    virtual ~CJPEGColorComponent() = default;

    std::int32_t m_nId = 0;        // the frame header's identifier
    std::int32_t m_nIndex = 0;     // position in the frame, set for progressive frames
    std::int32_t m_nHSampling = 0; // the frame header's factors
    std::int32_t m_nVSampling = 0;
    std::int32_t m_nHFactor = 0; // upsampling: 2 for chroma of half the resolution, else 1
    std::int32_t m_nVFactor = 0;
    std::int32_t m_nBlocks = 0; // encoder only
    std::int32_t m_nQuantSelector = 0;
    std::int32_t m_nDcSelector = 0;
    std::int32_t m_nAcSelector = 0;
    bool m_bAcScanDone = false;
    std::int16_t m_nLastDc = 0; // DC predictor

    IppBuffer<std::uint8_t> m_pCcBuffer; // samples at full resolution
    IppBuffer<std::uint8_t> m_pSsBuffer; // samples at the coded resolution, with room around them
    IppBuffer<std::uint8_t> m_pTopRow;   // last chroma row of the MCU row before
};
