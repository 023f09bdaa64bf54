// Frame header and scan header (T.81 B.2.2, B.2.3), and what follows from them: sampling, geometry, colour.

#include "image/jpegdec/JpegDecoder.h"
#include "image/kernels/JpegMarkers.h"
#include "image/kernels/Measures.h"

#include <algorithm>

// Refused besides what cannot be read: a second frame header, since every buffer is sized by the first; a
// width or height of 0 (a height to be told later by DNL included, T.81 B.2.5) and a picture above the
// limits.
JpegStatus CJPEGDecoder::ReadFrameHeader(bool bProgressive) {
    if (m_nJpegComponents != 0)
        return JPEG_BAD_FRAME_SEGMENT;
    std::int32_t nContent = 0;
    if (const JpegStatus eStatus = ReadSegmentLength(nContent); eStatus != JPEG_OK)
        return eStatus;
    if (ReadByte() != 8)
        return JPEG_NOT_SUPPORTED;
    const std::int32_t nHeight = ReadWord();
    const std::int32_t nWidth = ReadWord();
    const std::int32_t nComponents = ReadByte();
    if (nComponents < 1 || nComponents > kJpegMaxComponents)
        return JPEG_BAD_FRAME_SEGMENT;
    if (nContent - 6 != 3 * nComponents)
        return JPEG_BAD_SEGMENT_LENGTH;
    if (nWidth < 1 || nHeight < 1)
        return JPEG_BAD_FRAME_SEGMENT;
    if (!IsPictureSizeAllowed(nWidth, nHeight))
        return JPEG_NOT_SUPPORTED;
    m_nJpegWidth = nWidth;
    m_nJpegHeight = nHeight;
    m_nJpegComponents = nComponents;
    m_bProgressive = bProgressive;
    if (const JpegStatus eStatus = ReadFrameComponents(); eStatus != JPEG_OK)
        return eStatus;
    ClassifySampling();
    m_nMarker = M_NONE;
    return JPEG_OK;
}

// Identifiers may repeat: a scan header then names the first that fits. A quantisation selector must be one
// of the four slots.
JpegStatus CJPEGDecoder::ReadFrameComponents() {
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        m_apComponents[i] = std::make_unique<CJPEGColorComponent>();
        CJPEGColorComponent& component = *m_apComponents[i];
        component.m_nId = ReadByte();
        const std::int32_t nFactors = ReadByte();
        component.m_nHSampling = nFactors >> 4;
        component.m_nVSampling = nFactors & 15;
        component.m_nQuantSelector = ReadByte();
        if (m_bProgressive)
            component.m_nIndex = i;
        if (component.m_nHSampling < 1 || component.m_nVSampling < 1)
            return JPEG_BAD_FRAME_SEGMENT;
        if (component.m_nQuantSelector > 3)
            return JPEG_BAD_QUANT_SEGMENT;
    }
    // One component's scan is not interleaved, and its factors say nothing (T.81 A.2.2).
    if (m_nJpegComponents == 1)
        m_apComponents[0]->m_nHSampling = m_apComponents[0]->m_nVSampling = 1;
    return JPEG_OK;
}

void CJPEGDecoder::ClassifySampling() {
    // Components 0 and 3 with the given factors, all others 1x1.
    const auto isSampling = [this](std::int32_t nH, std::int32_t nV) {
        for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
            const bool bLuma = i == 0 || i == 3;
            const CJPEGColorComponent& component = *m_apComponents[i];
            if (component.m_nHSampling != (bLuma ? nH : 1) || component.m_nVSampling != (bLuma ? nV : 1))
                return false;
        }
        return true;
    };
    const bool bCanSubsample = m_nJpegComponents >= 3;
    if (m_nJpegComponents != 2 && isSampling(1, 1))
        m_eJpegSampling = JS_444;
    else if (bCanSubsample && isSampling(2, 1))
        m_eJpegSampling = JS_422;
    else if (bCanSubsample && isSampling(2, 2))
        m_eJpegSampling = JS_420;
    else
        m_eJpegSampling = JS_OTHER; // two components included: no colour model has them

    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        m_apComponents[i]->m_nHFactor = IsFullResolution(i) ? 1 : 2;
        m_apComponents[i]->m_nVFactor = m_eJpegSampling == JS_420 && !IsFullResolution(i) ? 2 : 1;
    }
}

void CJPEGDecoder::ComputeGeometry() {
    m_nMcuWidth = m_eJpegSampling == JS_444 ? 8 : 16;
    m_nMcuHeight = m_eJpegSampling == JS_420 ? 16 : 8;
    m_nMcuCols = CeilDivide(m_nJpegWidth, m_nMcuWidth);
    m_nMcuRows = CeilDivide(m_nJpegHeight, m_nMcuHeight);
    m_nPadX = m_nMcuCols * m_nMcuWidth - m_nJpegWidth;
    m_nPadY = m_nMcuRows * m_nMcuHeight - m_nJpegHeight;
    m_nCcWidth = m_nMcuCols * m_nMcuWidth;
    m_nCcHeight = m_bProgressive ? m_nMcuRows * m_nMcuHeight : m_nMcuHeight;
}

// A scan header must lie in the source as a whole: ReadHeader steps back over it.
JpegStatus CJPEGDecoder::ReadScanHeader() {
    std::int32_t nContent = 0;
    if (const JpegStatus eStatus = ReadSegmentLength(nContent); eStatus != JPEG_OK)
        return eStatus;
    m_nSosLength = nContent + 2;
    const std::int32_t nBytesLeft = BytesLeft();
    const std::int32_t nCount = ReadByte();
    if (nCount < 1 || nCount > kJpegMaxComponents)
        return JPEG_BAD_SCAN_SEGMENT;
    // Streams with a scan for each component are left to the fallback engine.
    if (!m_bProgressive && nCount < m_nJpegComponents)
        return JPEG_NOT_SUPPORTED;
    if (nContent != 2 * nCount + 4)
        return JPEG_BAD_SEGMENT_LENGTH;
    if (nBytesLeft < nContent)
        return JPEG_BUFFER_EXHAUSTED;
    if (const JpegStatus eStatus = ReadScanComponents(nCount); eStatus != JPEG_OK)
        return eStatus;
    m_nSs = ReadByte();
    m_nSe = ReadByte();
    const std::int32_t nAhAl = ReadByte();
    m_nAh = nAhAl >> 4;
    m_nAl = nAhAl & 15;
    DecideColor();
    m_nRestartsToGo = m_nRestartInterval;
    m_nMarker = M_NONE;
    return JPEG_OK;
}

// Each identifier is that of the first component that has it, so a component may be named twice and another
// not at all, which then keeps the selectors that it had. A scan of as many as the frame has holds the data
// of them all, in the frame's order, whatever it names. Selectors beyond the four slots are refused here,
// slots that are empty when the data begins.
JpegStatus CJPEGDecoder::ReadScanComponents(std::int32_t nCount) {
    m_nScanComponents = 0;
    for (std::int32_t i = 0; i < nCount; ++i) {
        const std::int32_t nId = ReadByte();
        const std::int32_t nSelectors = ReadByte();
        std::int32_t nIndex = 0;
        while (nIndex < m_nJpegComponents && m_apComponents[nIndex]->m_nId != nId)
            ++nIndex;
        if (nIndex == m_nJpegComponents)
            return JPEG_BAD_COMPONENT_ID;
        m_nScanComponents |= 1u << nIndex;
        m_nCurrentComponent = nIndex;
        m_apComponents[nIndex]->m_nDcSelector = nSelectors >> 4;
        m_apComponents[nIndex]->m_nAcSelector = nSelectors & 15;
        if (nSelectors >> 4 > 3 || (nSelectors & 15) > 3)
            return JPEG_BAD_HUFFMAN_SEGMENT;
    }
    if (nCount >= m_nJpegComponents)
        m_nScanComponents = (1u << m_nJpegComponents) - 1;
    return JPEG_OK;
}

// The Adobe marker overrides the JFIF one; without any, three components are taken as YCbCr.
void CJPEGDecoder::DecideColor() {
    m_eJpegColor = m_nJpegComponents == 1 ? JC_GRAY : m_nJpegComponents == 3 ? JC_YCBCR : JC_UNKNOWN;
    if (!m_bAdobeFound)
        return;
    switch (m_nAdobeTransform) {
    case 0:
        m_eJpegColor = m_nJpegComponents == 1   ? JC_GRAY
                       : m_nJpegComponents == 3 ? JC_RGB
                       : m_nJpegComponents == 4 ? JC_CMYK
                                                : JC_UNKNOWN;
        break;
    case 1:
        m_eJpegColor = JC_YCBCR;
        break;
    case 2:
        m_eJpegColor = JC_YCCK;
        break;
    default:
        m_eJpegColor = JC_UNKNOWN;
        break;
    }
}
