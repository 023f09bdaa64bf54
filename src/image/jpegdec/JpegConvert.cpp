// Which pairs of colours have a conversion, and those of them that end in interleaved pixels.

#include "image/jpegdec/JpegDecoder.h"

#include <algorithm>

// Planes go to the kernel in the order of anPlanes, components of the frame.
struct CJPEGDecoder::PixelConversion {
    using Kernel = IppStatus (*)(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                                 std::int32_t nDstStep, IppiSize roiSize);
    Kernel pKernel;
    std::int32_t nChannels;
    std::int32_t anPlanes[kJpegMaxComponents];
};

namespace {

IppStatus CopyOnePlane(const std::uint8_t* const* apSrc, std::int32_t nSrcStep, std::uint8_t* pDst,
                       std::int32_t nDstStep, IppiSize roiSize) {
    return ippiCopy_8u_C1R(apSrc[0], nSrcStep, pDst, nDstStep, roiSize);
}

} // namespace

struct CJPEGDecoder::ColorPair {
    JpegColor eFrom;
    JpegColor eTo;
    std::int32_t nComponents;
    Conversion eConversion;
    PixelConversion pixels;
};

const CJPEGDecoder::ColorPair* CJPEGDecoder::FindColorPair(bool& bColorsKnown) const {
    static constexpr ColorPair kPairs[] = {
        {JC_GRAY, JC_GRAY, 1, Conversion::GrayToGray, {}},
        {JC_YCBCR, JC_YCBCR420_PLANAR, 3, Conversion::YCbCrToPlanar, {}},
        {JC_UNKNOWN, JC_UNKNOWN, 1, Conversion::Pixels, {&CopyOnePlane, 1, {0}}},
        {JC_UNKNOWN, JC_UNKNOWN, 3, Conversion::Pixels, {&ippiCopy_8u_P3C3R, 3, {0, 1, 2}}},
        {JC_UNKNOWN, JC_UNKNOWN, 4, Conversion::Pixels, {&ippiCopy_8u_P4C4R, 4, {0, 1, 2, 3}}},
        {JC_GRAY, JC_RGB, 1, Conversion::Pixels, {&ippiCopy_8u_P3C3R, 3, {0, 0, 0}}},
        {JC_GRAY, JC_BGR, 1, Conversion::Pixels, {&ippiCopy_8u_P3C3R, 3, {0, 0, 0}}},
        {JC_RGB, JC_RGB, 3, Conversion::Pixels, {&ippiCopy_8u_P3C3R, 3, {0, 1, 2}}},
        {JC_RGB, JC_BGR, 3, Conversion::Pixels, {&ippiCopy_8u_P3C3R, 3, {2, 1, 0}}},
        {JC_YCBCR, JC_RGB, 3, Conversion::Pixels, {&ippiYCbCrToRGB_JPEG_8u_P3C3R, 3, {0, 1, 2}}},
        {JC_YCBCR, JC_BGR, 3, Conversion::Pixels, {&ippiYCbCrToBGR_JPEG_8u_P3C3R, 3, {0, 1, 2}}},
        {JC_CMYK, JC_CMYK, 4, Conversion::Pixels, {&ippiCopy_8u_P4C4R, 4, {0, 1, 2, 3}}},
        {JC_YCCK, JC_CMYK, 4, Conversion::Pixels, {&ippiYCCKToCMYK_JPEG_8u_P4C4R, 4, {0, 1, 2, 3}}},
    };
    bColorsKnown = false;
    for (const ColorPair& pair : kPairs) {
        if (pair.eFrom != m_eJpegColor || pair.eTo != m_eDstColor)
            continue;
        bColorsKnown = true;
        if (pair.nComponents == m_nJpegComponents)
            return &pair;
    }
    return nullptr;
}

// Any pair without a conversion leaves the destination untouched and is no error. A component count that the
// conversion cannot take is one: an Adobe marker may claim YCbCr of a frame with any number of them. A
// destination that could not be written is refused before any work: one without memory, of another size than
// the stream's, or without room for its pixels in a row.
JpegStatus CJPEGDecoder::ChooseConversion(Conversion& eConversion) {
    bool bColorsKnown = false;
    const ColorPair* const pPair = FindColorPair(bColorsKnown);
    eConversion = pPair ? pPair->eConversion : Conversion::None;
    if (!pPair)
        return bColorsKnown ? JPEG_NOT_SUPPORTED : JPEG_OK;
    if (!m_pDst || m_nDstWidth != m_nJpegWidth || m_nDstHeight != m_nJpegHeight)
        return JPEG_INTERNAL_ERROR;
    if (eConversion != Conversion::Pixels)
        return JPEG_OK;
    m_pPixels = &pPair->pixels;
    if (m_nDstChannels != m_pPixels->nChannels)
        return JPEG_NOT_SUPPORTED;
    return std::int64_t{m_nDstWidth} * m_nDstChannels > m_nDstStep ? JPEG_INTERNAL_ERROR : JPEG_OK;
}

// With 4:2:0 the last line of an MCU row needs the first chroma row of the next one. It is written with what
// there is, and once more, in its final form, when the next MCU row has come: from the lines that the seam
// has kept.
JpegStatus CJPEGDecoder::ConvertPixels(std::int32_t nMcuRow) {
    const std::uint8_t* apPlanes[kJpegMaxComponents] = {};
    const std::int32_t nTop = nMcuRow * m_nMcuHeight;
    if (m_eJpegSampling == JS_420) {
        if (const JpegStatus eStatus = UpsampleAcrossRows(nMcuRow); eStatus != JPEG_OK)
            return eStatus;
        for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
            apPlanes[i] = SeamLine(i);
        if (nMcuRow > 0) {
            if (const JpegStatus eStatus = WritePixels(apPlanes, nTop - 1, 1); eStatus != JPEG_OK)
                return eStatus;
        }
    }
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        apPlanes[i] = m_apComponents[i]->m_pCcBuffer.get();
        if (m_eJpegSampling == JS_420 && IsFullResolution(i))
            std::copy_n(apPlanes[i] + std::int64_t{m_nMcuHeight - 1} * m_nCcWidth, m_nCcWidth, SeamLine(i));
    }
    return WritePixels(apPlanes, nTop, m_nCcHeight);
}

// apPlanes: by component, stride m_nCcWidth.
JpegStatus CJPEGDecoder::WritePixels(const std::uint8_t* const (&apPlanes)[kJpegMaxComponents],
                                     std::int32_t nTop, std::int32_t nRows) const {
    const std::uint8_t* apSrc[kJpegMaxComponents] = {};
    for (std::int32_t i = 0; i < m_pPixels->nChannels; ++i)
        apSrc[i] = apPlanes[m_pPixels->anPlanes[i]];
    std::uint8_t* const pOut = static_cast<std::uint8_t*>(m_pDst) + std::int64_t{nTop} * m_nDstStep;
    const IppStatus nStatus = m_pPixels->pKernel(apSrc, m_nCcWidth, pOut, m_nDstStep, {m_nDstWidth, nRows});
    return nStatus < 0 ? JPEG_INTERNAL_ERROR : JPEG_OK;
}

// The line of a component that ends the MCU row before, at full resolution. For chroma it is the second of
// the two lines that the kernel makes from the rows on both sides of the seam.
std::uint8_t* CJPEGDecoder::SeamLine(std::int32_t nComponent) const {
    return m_pSeam.get() + std::int64_t{2 * nComponent + 1} * m_nCcWidth;
}

// 4:2:0 chroma to full resolution. Beyond the picture's edges the outermost samples are repeated.
JpegStatus CJPEGDecoder::UpsampleAcrossRows(std::int32_t nMcuRow) {
    const std::int32_t nStep = SsStep();
    const std::int32_t nWidth = m_nCcWidth >> 1;
    const std::int32_t nRows = m_nMcuHeight >> 1;
    const std::int64_t nLines = std::int64_t{2} * kJpegMaxComponents * m_nCcWidth;
    if (!m_pSeam) {
        m_pSeam = IppAllocate<std::uint8_t>(nLines + std::int64_t{3} * nStep);
        if (!m_pSeam)
            return JPEG_INTERNAL_ERROR;
    }
    std::uint8_t* const pWindow = m_pSeam.get() + nLines; // three rows around the seam
    for (std::int32_t i = 1; i < std::min(m_nJpegComponents, 3); ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        std::uint8_t* const pAbove = component.m_pSsBuffer.get();
        std::uint8_t* const pFirst = pAbove + nStep;
        std::uint8_t* const pLast = pAbove + std::ptrdiff_t{nRows} * nStep;
        for (std::uint8_t* pRow = pFirst; pRow <= pLast; pRow += nStep) {
            pRow[0] = pRow[1];
            pRow[nWidth + 1] = pRow[nWidth];
        }
        std::copy_n(nMcuRow > 0 ? component.m_pTopRow.get() : pFirst, nStep, pAbove);
        std::copy_n(pLast, nStep, pLast + nStep);
        if (nMcuRow > 0) {
            std::copy_n(pAbove, nStep, pWindow);
            std::copy_n(pAbove, 2 * nStep, pWindow + nStep);
            if (ippiSampleUpH2V2_JPEG_8u_C1R(pWindow + nStep + 1, nStep, {nWidth, 1},
                                             SeamLine(i) - m_nCcWidth, m_nCcWidth, {m_nCcWidth, 2}) < 0)
                return JPEG_INTERNAL_ERROR;
        }
        if (ippiSampleUpH2V2_JPEG_8u_C1R(pFirst + 1, nStep, {nWidth, nRows}, component.m_pCcBuffer.get(),
                                         m_nCcWidth, {m_nCcWidth, m_nMcuHeight}) < 0)
            return JPEG_INTERNAL_ERROR;
        std::copy_n(pLast, nStep, component.m_pTopRow.get());
    }
    return JPEG_OK;
}
