// Marker segments (T.81 Annex B). Each is written whole or not at all: its size is known before its first
// byte, and one byte of the buffer stays free behind it.

#include "image/jpegenc/JpegEncoder.h"

#include "image/format/JpegMarkers.h"
#include "image/format/JpegSegments.h"

#include <algorithm>
#include <cstring>
#include <numeric>

// A segment in the making: the marker, the length that counts itself and what follows, then the content.
class CJPEGEncoder::Segment {
public:
    // nLength is what the length field says; 0 for a marker alone.
    Segment(CJPEGEncoder& encoder, std::int32_t nMarker, std::int32_t nLength) : m_encoder(encoder) {
        if (m_encoder.m_nDstPos + 2 + nLength >= m_encoder.m_nDstSize)
            return;
        m_bFits = true;
        Byte(0xFF);
        Byte(nMarker);
        if (nLength > 0)
            Word(nLength);
    }

    explicit operator bool() const { return m_bFits; }

    void Byte(std::int32_t nByte) {
        m_encoder.m_pDst[m_encoder.m_nDstPos++] = static_cast<std::uint8_t>(nByte);
    }
    void Word(std::int32_t nWord) {
        Byte(nWord >> 8);
        Byte(nWord);
    }
    void Bytes(const void* pBytes, std::int32_t nCount) {
        std::memcpy(m_encoder.m_pDst + m_encoder.m_nDstPos, pBytes, static_cast<std::size_t>(nCount));
        m_encoder.m_nDstPos += nCount;
    }

private:
    CJPEGEncoder& m_encoder;
    bool m_bFits = false;
};

JpegStatus CJPEGEncoder::WriteMarker(std::int32_t nMarker) {
    return Segment(*this, nMarker, 0) ? JPEG_OK : JPEG_BUFFER_EXHAUSTED;
}

// SOI, the application segment that tells the colours, the comment. A stream of unknown colour has none that
// could be told.
JpegStatus CJPEGEncoder::WriteStart() {
    if (const JpegStatus eStatus = WriteMarker(M_SOI); eStatus != JPEG_OK)
        return eStatus;
    if (m_eJpegColor == JC_GRAY || m_eJpegColor == JC_YCBCR) {
        if (const JpegStatus eStatus = WriteJfif(); eStatus != JPEG_OK)
            return eStatus;
    } else if (m_eJpegColor != JC_UNKNOWN) {
        if (const JpegStatus eStatus = WriteAdobe(); eStatus != JPEG_OK)
            return eStatus;
    }
    return WriteComment();
}

JpegStatus CJPEGEncoder::WriteJfif() {
    Segment segment(*this, M_APP0, 16);
    if (!segment)
        return JPEG_BUFFER_EXHAUSTED;
    segment.Bytes(kJfif.data(), 5);
    segment.Word(0x0102); // version 1.02
    segment.Byte(0);      // no units: the densities are an aspect ratio
    segment.Word(1);
    segment.Word(1);
    segment.Byte(0); // no thumbnail
    segment.Byte(0);
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteAdobe() {
    Segment segment(*this, M_APP14, 14);
    if (!segment)
        return JPEG_BUFFER_EXHAUSTED;
    segment.Bytes(kAdobe.data(), 5);
    segment.Word(100);
    segment.Word(0);
    segment.Word(0);
    segment.Byte(m_eJpegColor == JC_YCBCR ? 1 : m_eJpegColor == JC_YCCK ? 2 : 0);
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteComment() {
    static constexpr char kComment[] = "Norvane JPEG Encoder"; // with its zero byte
    Segment segment(*this, M_COM, 2 + static_cast<std::int32_t>(sizeof kComment));
    if (!segment)
        return JPEG_BUFFER_EXHAUSTED;
    segment.Bytes(kComment, sizeof kComment);
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteQuantTable(std::int32_t nId) {
    const CJPEGEncoderQuantTable& table = *m_apQuant[nId];
    Segment segment(*this, M_DQT, 67);
    if (!segment)
        return JPEG_BUFFER_EXHAUSTED;
    segment.Byte(table.m_nPrecision << 4 | table.m_nId);
    segment.Bytes(table.m_aRaw, 64);
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteFrameHeader(std::int32_t nMarker) {
    Segment segment(*this, nMarker, 8 + 3 * m_nJpegComponents);
    if (!segment)
        return JPEG_BUFFER_EXHAUSTED;
    segment.Byte(8); // bits a sample
    segment.Word(m_nSrcHeight);
    segment.Word(m_nSrcWidth);
    segment.Byte(m_nJpegComponents);
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[i];
        segment.Byte(component.m_nId);
        segment.Byte(component.m_nHSampling << 4 | component.m_nVSampling);
        segment.Byte(component.m_nQuantSelector);
    }
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteHuffmanTable(const CJPEGEncoderHuffmanTable& table) {
    const std::int32_t nValues = std::accumulate(table.m_aBits, table.m_aBits + 16, 0);
    Segment segment(*this, M_DHT, 19 + nValues);
    if (!segment)
        return JPEG_BUFFER_EXHAUSTED;
    segment.Byte(table.m_nClass << 4 | table.m_nId);
    segment.Bytes(table.m_aBits, 16);
    segment.Bytes(table.m_aValues, nValues);
    return JPEG_OK;
}

// Nothing for a stream without restarts.
JpegStatus CJPEGEncoder::WriteRestartInterval() {
    if (m_nRestartInterval == 0)
        return JPEG_OK;
    Segment segment(*this, M_DRI, 4);
    if (!segment)
        return JPEG_BUFFER_EXHAUSTED;
    segment.Word(m_nRestartInterval);
    m_nRestartsToGo = m_nRestartInterval;
    m_nNextRestart = 0;
    return JPEG_OK;
}

JpegStatus CJPEGEncoder::WriteScanHeader(const JpegScan& scan) {
    Segment segment(*this, M_SOS, 6 + 2 * scan.nComponents);
    if (!segment)
        return JPEG_BUFFER_EXHAUSTED;
    segment.Byte(scan.nComponents);
    for (std::int32_t i = 0; i < scan.nComponents; ++i) {
        const CJPEGColorComponent& component = *m_apComponents[scan.anComponent[i]];
        segment.Byte(component.m_nId);
        segment.Byte(component.m_nDcSelector << 4 | component.m_nAcSelector);
    }
    segment.Byte(scan.nSs);
    segment.Byte(scan.nSe);
    segment.Byte(scan.nAh << 4 | scan.nAl);
    return JPEG_OK;
}

// The marker between two intervals, and what begins anew behind it. The bits are out already.
JpegStatus CJPEGEncoder::WriteRestartMarker() {
    if (const JpegStatus eStatus = WriteMarker(M_RST0 + m_nNextRestart); eStatus != JPEG_OK)
        return eStatus;
    m_nNextRestart = (m_nNextRestart + 1) & 7;
    m_nRestartsToGo = m_nRestartInterval;
    for (std::int32_t i = 0; i < m_nJpegComponents; ++i)
        m_apComponents[i]->m_nLastDc = 0;
    return JPEG_OK;
}
