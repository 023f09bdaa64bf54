// The loop over the markers of a stream, and the segments that only fill tables and fields (T.81 B.2).
//
// A segment must lie in the stream as a whole, so its reader checks no more than its own lengths. However
// much of it is understood, the parser goes on behind it.

#include "image/format/JpegMarkers.h"
#include "image/ijl/IjlDecoder.h"
#include "image/kernels/Tables.h"

#include <algorithm>
#include <cstring>
#include <numeric>
#include <utility>

// Tables stay from one read to the next; all else that a stream says is forgotten.
IJLERR CIjlDecoder::Read() {
    if (!m_props.JPGBytes || m_props.JPGSizeBytes < 1 || m_props.JPGSizeBytes > INT32_MAX)
        return IJL_INVALID_JPEG_PROPERTIES;
    m_props.nSrcSize = static_cast<std::int32_t>(m_props.JPGSizeBytes);
    m_props.nSrcPos = 0;
    m_props.nMarker = M_NONE;
    m_props.nRestartInterval = 0;
    m_props.bFrameFound = false;
    static_cast<JpegApplicationFields&>(m_props) = {};
    m_props.JPGThumbWidth = m_props.JPGThumbHeight = 0;
    m_props.fast_processing = 0;
    m_props.jpeg_comment_length = 0;
    if (const IJLERR eError = Parse(); eError != IJL_OK)
        return eError;
    DecideStreamColor();
    return IJL_OK;
}

IJLERR CIjlDecoder::Parse() {
    for (bool bStop = false; !bStop;) {
        std::int32_t nMarker = std::exchange(m_props.nMarker, M_NONE);
        if (nMarker == M_NONE)
            nMarker = SeekMarker(m_props.JPGBytes, m_props.nSrcSize, m_props.nSrcPos);
        if (nMarker == M_NONE)
            return IJL_ERR_DATA;
        if (const IJLERR eError = HandleMarker(nMarker, bStop); eError != IJL_OK)
            return eError;
    }
    // A stream that ends in order without a scan holds no picture.
    if (!m_props.bFrameFound)
        return IJL_ERR_NO_FRAME;
    if (m_props.iotype == IJL_JBUFF_READPARAMS)
        return IJL_OK;
    if (!m_bPictureBegun)
        return IJL_ERR_DATA;
    return m_pStore ? WriteStoredPicture() : IJL_OK;
}

IJLERR CIjlDecoder::HandleMarker(std::int32_t nMarker, bool& bStop) {
    const bool bParams = m_props.iotype == IJL_JBUFF_READPARAMS;
    if (IsRestartMarker(nMarker))
        return IJL_OK;
    if (FrameTypeOf(nMarker) == JpegFrameType::Unsupported)
        return IJL_UNSUPPORTED_FRAME;
    switch (nMarker) {
    case M_SOI:
        m_props.nRestartInterval = 0;
        return IJL_OK;
    case M_EOI:
        bStop = true;
        return bParams && m_props.bFrameFound ? IJL_ERR_DATA : IJL_OK;
    case M_SOS:
        if (!m_props.bFrameFound)
            return IJL_ERR_NO_FRAME;
        if (bParams) {
            bStop = true;
            return IJL_OK;
        }
        break;
    case M_DRI:
        // The length says nothing about what follows: the interval does.
        if (Reader().BytesLeft() < 4)
            return IJL_ERR_DATA;
        m_props.nSrcPos += 2;
        m_props.nRestartInterval = Reader().Word();
        return IJL_OK;
    default:
        break;
    }
    return HandleSegment(nMarker);
}

IJLERR CIjlDecoder::HandleSegment(std::int32_t nMarker) {
    if (Reader().BytesLeft() < 2)
        return IJL_ERR_DATA;
    const std::int32_t nContent = Reader().Word() - 2;
    if (nContent < 0 || nContent > Reader().BytesLeft())
        return IJL_ERR_DATA;
    const std::int32_t nBehind = m_props.nSrcPos + nContent;
    IJLERR eError = IJL_OK;
    switch (nMarker) {
    case M_SOF0:
    case M_SOF1:
    case M_SOF2:
        eError = ReadFrameHeader(nMarker == M_SOF2, nContent);
        break;
    case M_SOS:
        eError = ReadScanHeader(nContent);
        break;
    case M_DQT:
        eError = ReadQuantTables(nContent);
        break;
    case M_DHT:
        eError = ReadHuffmanTables(nContent);
        break;
    case M_APP0:
        m_props.ReadJfif(Reader(), nContent);
        m_props.JPGThumbWidth = m_props.m_nJfifThumbWidth;
        m_props.JPGThumbHeight = m_props.m_nJfifThumbHeight;
        break;
    case M_APP14:
        m_props.ReadAdobe(Reader(), nContent);
        break;
    case M_COM:
        eError = ReadComment(nContent);
        break;
    default:
        break;
    }
    m_props.nSrcPos = nBehind;
    return eError == IJL_OK && nMarker == M_SOS ? DecodeScan() : eError;
}

// T.81 B.2.4.1. Entries of 16 bits are kept whole: encoders write them with 8-bit samples at low qualities.
IJLERR CIjlDecoder::ReadQuantTables(std::int32_t nContent) {
    while (nContent >= 1) {
        const std::int32_t nPqTq = Reader().Byte();
        const std::int32_t nWidth = 1 + (nPqTq >> 4); // bytes an entry
        nContent -= 1 + 64 * nWidth;
        if (nWidth > 2 || (nPqTq & 15) > 3 || nContent < 0)
            return IJL_BAD_QUANT_TABLE;
        IjlQuantTable& table = m_props.aQuant[nPqTq & 15];
        for (std::int32_t i = 0; i < 64; ++i)
            table.aSteps[g_aZigZag[i]] =
                static_cast<std::uint16_t>(nWidth == 2 ? Reader().Word() : Reader().Byte());
        table.bPresent = true;
    }
    return IJL_OK;
}

// T.81 B.2.4.2. A table that comes once more, as in the second read of a stream, is not built once more.
IJLERR CIjlDecoder::ReadHuffmanTables(std::int32_t nContent) {
    while (nContent >= 17) {
        const std::int32_t nTcTh = Reader().Byte();
        if (nTcTh >> 4 > 1 || (nTcTh & 15) > 3)
            return IJL_BAD_HUFFMAN_TABLE;
        IjlHuffmanTable& table = (nTcTh >> 4 != 0 ? m_props.aAc : m_props.aDc)[nTcTh & 15];
        const std::uint8_t* const pBits = m_props.JPGBytes + m_props.nSrcPos;
        const std::uint8_t* const pValues = pBits + 16;
        const std::int32_t nValues = std::accumulate(pBits, pValues, 0);
        nContent -= 17 + nValues;
        if (nValues > 256 || nContent < 0)
            return IJL_BAD_HUFFMAN_TABLE;
        m_props.nSrcPos += 16 + nValues;
        if (table.pSpec && std::equal(pBits, pValues, table.aBits) &&
            std::equal(pValues, pValues + nValues, table.aValues))
            continue;
        std::copy(pBits, pValues, table.aBits);
        std::fill(std::copy(pValues, pValues + nValues, table.aValues), std::end(table.aValues),
                  std::uint8_t{0});
        ippiDecodeHuffmanSpec* pSpec = nullptr;
        const IppStatus nStatus = ippiDecodeHuffmanSpecInit_JPEG_8u(table.aBits, table.aValues, &pSpec);
        table.pSpec.reset(pSpec);
        if (!pSpec)
            return IJL_MEMORY_ERROR;
        if (nStatus < 0) {
            table.pSpec.reset();
            return IJL_BAD_HUFFMAN_TABLE;
        }
    }
    return nContent == 0 ? IJL_OK : IJL_BAD_HUFFMAN_TABLE;
}

IJLERR CIjlDecoder::ReadComment(std::int32_t nContent) {
    if (!m_props.jpeg_comment || m_props.bFrameFound)
        return IJL_OK;
    if (nContent > m_props.jpeg_comment_size)
        return IJL_ERR_COM_BUFFER;
    std::memcpy(m_props.jpeg_comment, m_props.JPGBytes + m_props.nSrcPos, static_cast<std::size_t>(nContent));
    m_props.jpeg_comment_length = nContent;
    return IJL_OK;
}
