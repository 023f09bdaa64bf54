// From the source to the samples of one MCU row, whole MCUs wide and high: what lies beyond the picture's
// right and lower edge repeats the last sample of a row and the last row.

#include "image/jpegenc/JpegEncoder.h"

#include <algorithm>
#include <cstring>

CJPEGEncoder::Conversion CJPEGEncoder::ChooseConversion() const {
    struct Pair {
        JpegColor eFrom, eTo;
        std::int32_t nChannels;
        Conversion eConversion;
    };
    static constexpr Pair kPairs[] = {
        {JC_UNKNOWN, JC_UNKNOWN, 1, Conversion::Planes},
        {JC_UNKNOWN, JC_UNKNOWN, 3, Conversion::Split},
        {JC_UNKNOWN, JC_UNKNOWN, 4, Conversion::Split},
        {JC_GRAY, JC_GRAY, 1, Conversion::Planes},
        {JC_RGB, JC_GRAY, 3, Conversion::RgbToGray},
        {JC_RGB, JC_RGB, 3, Conversion::Split},
        {JC_RGB, JC_YCBCR, 3, Conversion::RgbToYCbCr},
        {JC_BGR, JC_YCBCR, 3, Conversion::BgrToYCbCr},
        {JC_CMYK, JC_CMYK, 4, Conversion::Split},
        {JC_CMYK, JC_YCCK, 4, Conversion::CmykToYcck},
        {JC_YCBCR420_PLANAR, JC_YCBCR, 1, Conversion::Planes},
    };
    // Planes go into the stream as they are.
    if (m_eSrcColor == JC_YCBCR420_PLANAR && m_eAskedSampling != JS_420)
        return Conversion::None;
    for (const Pair& pair : kPairs) {
        if (pair.eFrom == m_eSrcColor && pair.eTo == m_eJpegColor && pair.nChannels == m_nSrcChannels)
            return pair.eConversion;
    }
    // A pair that none is made for would otherwise write whatever the buffers hold.
    return Conversion::None;
}

JpegStatus CJPEGEncoder::PrepareMcuRow(std::int32_t nMcuRow) {
    if (m_eConversion == Conversion::Planes)
        return TakePlanes(nMcuRow);
    if (const JpegStatus eStatus = ConvertMcuRow(nMcuRow); eStatus != JPEG_OK)
        return eStatus;
    PadMcuRow(nMcuRow);
    return DownsampleMcuRow();
}

struct CJPEGEncoder::Plane {
    const std::uint8_t* pSamples;
    std::int32_t nStep;
    std::int32_t nWidth;
    std::int32_t nHeight;

    // Rows nFrom to nFrom + nRows - 1, nColumns wide, with the edges repeated. A plane without samples reads
    // as 128, the value of neutral chroma.
    void CopyArea(std::int32_t nFrom, std::int32_t nColumns, std::int32_t nRows, std::uint8_t* pTo,
                  std::int32_t nToStep) const {
        const auto nCopied = static_cast<std::size_t>(std::min(nColumns, nWidth));
        const auto nRepeated = static_cast<std::size_t>(nColumns) - nCopied;
        for (std::int32_t y = nFrom; y < nFrom + nRows; ++y, pTo += nToStep) {
            if (nWidth == 0 || nHeight == 0) {
                std::memset(pTo, 128, static_cast<std::size_t>(nColumns));
                continue;
            }
            const std::uint8_t* const pRow =
                pSamples + static_cast<std::ptrdiff_t>(std::min(y, nHeight - 1)) * nStep;
            std::memcpy(pTo, pRow, nCopied);
            std::memset(pTo + nCopied, pRow[nCopied - 1], nRepeated);
        }
    }
};

// Rows that hold whole MCUs are read in place. A chroma row is found by the stride of its own plane, which
// for an odd stride of luma is not a quarter of the luma's offset.
JpegStatus CJPEGEncoder::TakePlanes(std::int32_t nMcuRow) {
    Plane aPlanes[3] = {};
    const bool bThree = m_eSrcColor == JC_YCBCR420_PLANAR;
    if (bThree) {
        const PlanarSource& planes = *static_cast<const PlanarSource*>(m_pSrc);
        const std::int32_t nWidth = m_nSrcWidth >> 1;
        const std::int32_t nHeight = m_nSrcHeight >> 1;
        aPlanes[0] = {planes.pY, m_nSrcStep, m_nSrcWidth, m_nSrcHeight};
        aPlanes[1] = {planes.pCb, m_nSrcStep >> 1, nWidth, nHeight};
        aPlanes[2] = {planes.pCr, m_nSrcStep >> 1, nWidth, nHeight};
    } else {
        aPlanes[0] = {static_cast<const std::uint8_t*>(m_pSrc), m_nSrcStep, m_nSrcWidth, m_nSrcHeight};
    }
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const Plane& plane = aPlanes[i];
        const CJPEGColorComponent& component = *m_apComponents[i];
        const std::int32_t nColumns = m_nCcWidth / component.m_nHFactor;
        const std::int32_t nRows = m_nMcuHeight / component.m_nVFactor;
        const std::int32_t nFrom = nMcuRow * nRows;
        if (nColumns <= plane.nWidth && nFrom + nRows <= plane.nHeight) {
            m_aRows[i] = {plane.pSamples + static_cast<std::ptrdiff_t>(nFrom) * plane.nStep, plane.nStep};
            continue;
        }
        plane.CopyArea(nFrom, nColumns, nRows, component.m_pSsBuffer.get(), m_nCcWidth);
        m_aRows[i] = {component.m_pSsBuffer.get(), m_nCcWidth};
    }
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::ConvertMcuRow(std::int32_t nMcuRow) {
    m_nCcHeight = m_nMcuHeight - (nMcuRow == m_nMcuRows - 1 ? m_nPadY : 0);
    const std::uint8_t* const pRow = static_cast<const std::uint8_t*>(m_pSrc) +
                                     static_cast<std::ptrdiff_t>(nMcuRow) * m_nMcuHeight * m_nSrcStep;
    const IppiSize area{m_nSrcWidth, m_nCcHeight};
    std::uint8_t* apTo[kJpegMaxComponents] = {};
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        apTo[i] = m_apComponents[i]->m_pCcBuffer.get();
    IppStatus nStatus = ippStsNoErr;
    switch (m_eConversion) {
    case Conversion::Split:
        nStatus = m_nSrcChannels == 3 ? ippiCopy_8u_C3P3R(pRow, m_nSrcStep, apTo, m_nCcWidth, area)
                                      : ippiCopy_8u_C4P4R(pRow, m_nSrcStep, apTo, m_nCcWidth, area);
        break;
    case Conversion::RgbToGray:
        nStatus = ippiRGBToY_JPEG_8u_C3C1R(pRow, m_nSrcStep, apTo[0], m_nCcWidth, area);
        break;
    case Conversion::RgbToYCbCr:
        nStatus = ippiRGBToYCbCr_JPEG_8u_C3P3R(pRow, m_nSrcStep, apTo, m_nCcWidth, area);
        break;
    case Conversion::BgrToYCbCr:
        nStatus = ippiBGRToYCbCr_JPEG_8u_C3P3R(pRow, m_nSrcStep, apTo, m_nCcWidth, area);
        break;
    case Conversion::CmykToYcck:
        nStatus = ippiCMYKToYCCK_JPEG_8u_C4P4R(pRow, m_nSrcStep, apTo, m_nCcWidth, area);
        break;
    case Conversion::Planes:
    case Conversion::None:
        break;
    }
    return nStatus < 0 ? JPEG_INTERNAL_ERROR : JPEG_OK;
}

void CJPEGEncoder::PadMcuRow(std::int32_t nMcuRow) {
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        std::uint8_t* const pBuffer = m_apComponents[i]->m_pCcBuffer.get();
        for (std::int32_t y = 0; y < m_nCcHeight && m_nPadX != 0; ++y) {
            std::uint8_t* const pEnd = pBuffer + std::ptrdiff_t{y} * m_nCcWidth + m_nSrcWidth;
            std::memset(pEnd, pEnd[-1], static_cast<std::size_t>(m_nPadX));
        }
        if (nMcuRow != m_nMcuRows - 1)
            continue;
        const std::uint8_t* const pLast = pBuffer + static_cast<std::ptrdiff_t>(m_nCcHeight - 1) * m_nCcWidth;
        for (std::int32_t y = m_nCcHeight; y < m_nMcuHeight; ++y)
            std::memcpy(pBuffer + std::ptrdiff_t{y} * m_nCcWidth, pLast,
                        static_cast<std::size_t>(m_nCcWidth));
    }
}

// A component at full resolution is coded from where it stands.
JpegStatus CJPEGEncoder::DownsampleMcuRow() {
    const IppiSize whole{m_nCcWidth, m_nMcuHeight};
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        const std::uint8_t* const pFrom = component.m_pCcBuffer.get();
        std::uint8_t* const pTo = component.m_pSsBuffer.get();
        m_aRows[i] = {component.m_nHFactor == 1 ? pFrom : pTo, m_nCcWidth};
        if (component.m_nHFactor == 1)
            continue;
        const IppiSize half{m_nCcWidth >> 1, m_nMcuHeight / component.m_nVFactor};
        const IppStatus nStatus =
            component.m_nVFactor == 1
                ? ippiSampleDownH2V1_JPEG_8u_C1R(pFrom, m_nCcWidth, whole, pTo, m_nCcWidth, half)
                : ippiSampleDownH2V2_JPEG_8u_C1R(pFrom, m_nCcWidth, whole, pTo, m_nCcWidth, half);
        if (nStatus < 0)
            return JPEG_INTERNAL_ERROR;
    }
    return JPEG_OK;
}
