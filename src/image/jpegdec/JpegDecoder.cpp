// The four operations and the parser's loop over the markers of a stream (T.81 B.2).

#include "image/jpegdec/JpegDecoder.h"
#include "image/format/JpegMarkers.h"

CJPEGDecoder::CJPEGDecoder() = default;
CJPEGDecoder::~CJPEGDecoder() = default;

JpegStatus CJPEGDecoder::SetSource(const std::uint8_t* pSrc, std::int32_t nSrcSize) {
    m_pSrc = pSrc;
    m_nSrcSize = pSrc && nSrcSize > 0 ? nSrcSize : 0;
    m_nSrcPos = 0;
    return JPEG_OK;
}

JpegStatus CJPEGDecoder::ReadHeader(std::int32_t& nWidth, std::int32_t& nHeight, std::int32_t& nChannels,
                                    JpegColor& eColor, JpegSampling& eSampling) {
    if (const JpegStatus eStatus = ParseStream(Mode::Header); eStatus != JPEG_OK)
        return eStatus;
    // A stream that ends in order before any scan holds no picture.
    if (m_nJpegComponents == 0 || m_nSosLength == 0)
        return JPEG_BUFFER_EXHAUSTED;
    CountMcus(m_eJpegSampling, m_nJpegWidth, m_nJpegHeight);
    MeasurePads(m_nJpegWidth, m_nJpegHeight);
    if (m_bProgressive)
        m_nCcHeight = m_nMcuRows * m_nMcuHeight;
    nWidth = m_nJpegWidth;
    nHeight = m_nJpegHeight;
    nChannels = m_nJpegComponents;
    eColor = m_eJpegColor;
    eSampling = m_eJpegSampling;
    return JPEG_OK;
}

JpegStatus CJPEGDecoder::SetDestination(void* pDst, std::int32_t nWidth, std::int32_t nStep,
                                        std::int32_t nHeight, std::int32_t nChannels, JpegColor eColor) {
    m_pDst = pDst;
    m_nDstWidth = nWidth;
    m_nDstStep = nStep;
    m_nDstHeight = nHeight;
    m_nDstChannels = nChannels;
    m_eDstColor = eColor;
    return JPEG_OK;
}

JpegStatus CJPEGDecoder::ReadData() {
    const JpegStatus eStatus = ParseStream(Mode::Data);
    return m_bProgressive ? FinishProgressive(eStatus) : eStatus;
}

JpegStatus CJPEGDecoder::ParseStream(Mode eMode) {
    m_nMarker = M_NONE;
    for (bool bStop = false; !bStop;) {
        if (m_nMarker == M_NONE) {
            if (const JpegStatus eStatus = NextMarker(); eStatus != JPEG_OK)
                return eStatus;
        }
        if (const JpegStatus eStatus = HandleMarker(eMode, bStop); eStatus != JPEG_OK)
            return eStatus;
    }
    return JPEG_OK;
}

// Every handler leaves m_nMarker clear when it is done, or holding the marker that comes next.
JpegStatus CJPEGDecoder::HandleMarker(Mode eMode, bool& bStop) {
    if (IsRestartMarker(m_nMarker))
        return ProcessRestart();
    switch (FrameTypeOf(m_nMarker)) {
    case JpegFrameType::Sequential:
    case JpegFrameType::Progressive:
        if (m_nJpegComponents != 0) // every buffer is sized by the first
            return JPEG_BAD_FRAME_SEGMENT;
        return ReadSegment(&CJPEGDecoder::ReadFrameHeader);
    case JpegFrameType::Unsupported:
        return JPEG_NOT_SUPPORTED;
    case JpegFrameType::None:
        break;
    }
    switch (m_nMarker) {
    case M_DHT:
        return ReadSegment(&CJPEGDecoder::ReadHuffmanTables);
    case M_SOI:
        m_nMarker = M_NONE;
        return JPEG_OK;
    case M_EOI:
        m_nMarker = M_NONE;
        bStop = true;
        return JPEG_OK;
    case M_SOS:
        return HandleScan(eMode, bStop);
    case M_DQT:
        if (const JpegStatus eStatus = KeepQuantTables(); eStatus != JPEG_OK)
            return eStatus;
        return ReadSegment(&CJPEGDecoder::ReadQuantTables);
    case M_DRI:
        return ReadSegment(&CJPEGDecoder::ReadRestartInterval);
    case M_APP0:
    case M_APP14:
        return ReadSegment(&CJPEGDecoder::ReadApplicationSegment);
    case M_COM:
        return ReadSegment(&CJPEGDecoder::ReadComment);
    case M_FILL:
        --m_nSrcPos;
        m_nMarker = M_NONE;
        return JPEG_OK;
    default:
        return ReadSegment(&CJPEGDecoder::SkipSegment);
    }
}

JpegStatus CJPEGDecoder::HandleScan(Mode eMode, bool& bStop) {
    if (const JpegStatus eStatus = ReadSegment(&CJPEGDecoder::ReadScanHeader); eStatus != JPEG_OK)
        return eStatus;
    if (eMode == Mode::Header) {
        // Back to the marker, so that ReadData finds this start of scan again.
        m_nSrcPos -= m_nSosLength + 2;
        bStop = true;
        return JPEG_OK;
    }
    if (const JpegStatus eStatus = PrepareScan(); eStatus != JPEG_OK)
        return eStatus;
    return m_bProgressive ? DecodeProgressiveScan() : DecodeSequentialScan();
}
