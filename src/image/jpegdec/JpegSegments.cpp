// The search for markers, and the segments that only fill tables and fields (T.81 B.1,
// B.2.4).
//
// A segment is read by its own length field. Bytes that the source does not have read as zero and leave the
// position at its end, so a segment that is cut off ends in "no marker found" soon after.

#include "image/format/JpegMarkers.h"
#include "image/jpegdec/JpegDecoder.h"

#include <algorithm>
#include <numeric>

JpegStatus CJPEGDecoder::NextMarker() {
    m_nMarker = SeekMarker(m_pSrc, m_nSrcSize, m_nSrcPos);
    return m_nMarker != M_NONE ? JPEG_OK : JPEG_BUFFER_EXHAUSTED;
}

// The length field counts itself, the content that pRead gets does not. A length below 2 matches no content.
JpegStatus CJPEGDecoder::ReadSegment(JpegStatus (CJPEGDecoder::*pRead)(std::int32_t nContent)) {
    if (Reader().BytesLeft() < 3)
        return JPEG_BUFFER_EXHAUSTED;
    const std::int32_t nContent = Reader().Word() - 2;
    if (nContent < 0)
        return JPEG_BAD_SEGMENT_LENGTH;
    const JpegStatus eStatus = (this->*pRead)(nContent);
    if (eStatus == JPEG_OK)
        m_nMarker = M_NONE;
    return eStatus;
}

JpegStatus CJPEGDecoder::SkipSegment(std::int32_t nContent) {
    Reader().Skip(nContent);
    return JPEG_OK;
}

// T.81 B.2.4.4.
JpegStatus CJPEGDecoder::ReadRestartInterval(std::int32_t nContent) {
    if (nContent != 2)
        return JPEG_BAD_SEGMENT_LENGTH;
    m_nRestartInterval = Reader().Word();
    m_nRestartsToGo = m_nRestartInterval;
    return JPEG_OK;
}

// T.81 B.2.4.1. Of an entry of 16 bits only the low eight are kept: 8-bit samples have no use for more.
JpegStatus CJPEGDecoder::ReadQuantTables(std::int32_t nContent) {
    while (nContent >= 1) {
        const std::int32_t nPqTq = Reader().Byte();
        const std::int32_t nId = nPqTq & 15;
        if (nId > 3)
            return JPEG_BAD_QUANT_SEGMENT;
        CJPEGDecoderQuantTable& table = m_apQuant[nId].emplace();
        table.m_nId = nId;
        const bool bWide = nPqTq >> 4 != 0;
        if (!bWide)
            Reader().Bytes(table.m_aRaw, 64);
        for (std::int32_t i = 0; bWide && i < 64; ++i)
            table.m_aRaw[i] = static_cast<std::uint8_t>(Reader().Word());
        if (table.Init() != ippStsNoErr)
            return JPEG_INTERNAL_ERROR;
        nContent -= 1 + (bWide ? 128 : 64);
    }
    return nContent == 0 ? JPEG_OK : JPEG_BAD_SEGMENT_LENGTH;
}

// T.81 B.2.4.2. An identifier above 3 has no slot and is refused; a high nibble other than 0 means AC.
JpegStatus CJPEGDecoder::ReadHuffmanTables(std::int32_t nContent) {
    while (nContent >= 17) {
        const std::int32_t nTcTh = Reader().Byte();
        const std::int32_t nId = nTcTh & 15;
        if (nId > 3)
            return JPEG_BAD_HUFFMAN_SEGMENT;
        auto& apTables = nTcTh >> 4 != 0 ? m_apAcHuffman : m_apDcHuffman;
        CJPEGDecoderHuffmanTable& table = apTables[nId].emplace();
        table.m_nId = nId;
        table.m_nClass = nTcTh >> 4;
        Reader().Bytes(table.m_aBits, 16);
        nContent -= 17;
        const std::int32_t nValues = std::accumulate(std::begin(table.m_aBits), std::end(table.m_aBits), 0);
        if (nValues > 256 || nValues > nContent)
            return JPEG_BAD_HUFFMAN_SEGMENT;
        Reader().Bytes(table.m_aValues, nValues);
        nContent -= nValues;
    }
    return nContent == 0 ? JPEG_OK : JPEG_BAD_SEGMENT_LENGTH;
}

// APP0 and APP14.
JpegStatus CJPEGDecoder::ReadApplicationSegment(std::int32_t nContent) {
    const std::int32_t nBehind = m_nSrcPos + std::min(nContent, Reader().BytesLeft());
    if (m_nMarker == M_APP0)
        ReadJfif(Reader(), nContent);
    else
        ReadAdobe(Reader(), nContent);
    m_nSrcPos = nBehind;
    return JPEG_OK;
}

JpegStatus CJPEGDecoder::ReadComment(std::int32_t nContent) {
    // What the source has of it: a comment that is cut off must not make the copy read on.
    const std::int32_t nSize = std::min(nContent, Reader().BytesLeft());
    m_pComment = std::make_unique<char[]>(static_cast<std::size_t>(nSize) + 1);
    std::copy_n(m_pSrc + m_nSrcPos, nSize, m_pComment.get());
    m_nCommentSize = nSize;
    m_bCommentFound = true;
    Reader().Skip(nSize);
    return JPEG_OK;
}
