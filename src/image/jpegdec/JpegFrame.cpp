// Frame header and scan header (T.81 B.2.2, B.2.3), and what follows from them: sampling and colour.

#include "image/format/JpegMarkers.h"
#include "image/jpegdec/JpegDecoder.h"

// Refused besides what cannot be read: a width or height of 0 (a height to be told later by DNL included,
// T.81 B.2.5) and a picture above the limits.
JpegStatus CJPEGDecoder::ReadFrameHeader(std::int32_t nContent) {
    if (Reader().Byte() != 8)
        return JPEG_NOT_SUPPORTED;
    const std::int32_t nHeight = Reader().Word();
    const std::int32_t nWidth = Reader().Word();
    const std::int32_t nComponents = Reader().Byte();
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
    m_bProgressive = FrameTypeOf(m_nMarker) == JpegFrameType::Progressive;
    if (const JpegStatus eStatus = ReadFrameComponents(); eStatus != JPEG_OK)
        return eStatus;
    ClassifySampling();
    return JPEG_OK;
}

// Identifiers may repeat: a scan header then names the first that fits. A quantisation selector must be one
// of the four slots.
JpegStatus CJPEGDecoder::ReadFrameComponents() {
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        CJPEGColorComponent& component = m_apComponents[i].emplace();
        const JpegFrameEntry entry(Reader());
        component.m_nId = entry.nId;
        component.m_nHSampling = entry.nHSampling;
        component.m_nVSampling = entry.nVSampling;
        component.m_nQuantSelector = entry.nQuantSelector;
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
    // Two components cannot be decoded: no colour model has them.
    m_eJpegSampling =
        m_nJpegComponents == 2
            ? JS_OTHER
            : SamplingOf(m_nJpegComponents, [this](std::int32_t i, std::int32_t nH, std::int32_t nV) {
                  return m_apComponents[i]->m_nHSampling == nH && m_apComponents[i]->m_nVSampling == nV;
              });
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        m_apComponents[i]->m_nHFactor = HorizontalFactor(m_eJpegSampling, i);
        m_apComponents[i]->m_nVFactor = VerticalFactor(m_eJpegSampling, i);
    }
}

// A scan header must lie in the source as a whole: ReadHeader steps back over it.
JpegStatus CJPEGDecoder::ReadScanHeader(std::int32_t nContent) {
    m_nSosLength = nContent + 2;
    const std::int32_t nBytesLeft = Reader().BytesLeft();
    const std::int32_t nCount = Reader().Byte();
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
    ReadScanBand(Reader(), m_nSs, m_nSe, m_nAh, m_nAl);
    DecideColor();
    m_nRestartsToGo = m_nRestartInterval;
    return JPEG_OK;
}

// Each identifier is that of the first component that has it, so a component may be named twice and another
// not at all, which then keeps the selectors that it had. A scan of as many as the frame has holds the data
// of them all, in the frame's order, whatever it names. Selectors beyond the four slots are refused here,
// slots that are empty when the data begins.
JpegStatus CJPEGDecoder::ReadScanComponents(std::int32_t nCount) {
    m_nScanComponents = 0;
    for (std::int32_t i = 0; i < nCount; ++i) {
        const JpegScanEntry entry(Reader());
        std::int32_t nIndex = 0;
        while (nIndex < m_nJpegComponents && m_apComponents[nIndex]->m_nId != entry.nId)
            ++nIndex;
        if (nIndex == m_nJpegComponents)
            return JPEG_BAD_COMPONENT_ID;
        m_nScanComponents |= 1u << nIndex;
        m_nCurrentComponent = nIndex;
        m_apComponents[nIndex]->m_nDcSelector = entry.nDcSelector;
        m_apComponents[nIndex]->m_nAcSelector = entry.nAcSelector;
        if (entry.nDcSelector > 3 || entry.nAcSelector > 3)
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
