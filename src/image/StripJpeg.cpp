// The walk over a stream's markers that copies what makes the picture (T.81 B.2).
//
// The decoders behind this one are those of browsers and players. They take what T.81 describes, and differ
// in what they make of the rest: so whatever is not in order by the letter ends the walk, and the picture is
// encoded anew from what was decoded here. Order, not health, is looked at: entropy-coded data is copied as
// it is, and where it is damaged each decoder shows what it makes of it.

#include "image/CodecParts.h"

#include "image/format/JpegGeometry.h"
#include "image/format/JpegMarkers.h"
#include "image/format/JpegSegments.h"
#include "image/format/JpegTypes.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <span>

namespace {

constexpr std::int32_t kMostFactor = 4;

class PictureCopier {
public:
    PictureCopier(const std::uint8_t* pBytes, std::int32_t nSize, std::uint8_t* pOut)
        : m_pBytes(pBytes), m_nSize(nSize), m_pOut(pOut) {}

    bool Run() {
        PutMarker(M_SOI);
        for (;;) {
            const std::int32_t nMarker = SeekMarker(m_pBytes, m_nSize, m_nPos);
            if (nMarker == M_SOI)
                continue;
            if (nMarker == M_EOI) {
                PutMarker(M_EOI);
                return m_nScans > 0;
            }
            if (nMarker == M_NONE || IsRestartMarker(nMarker) || !TakeSegment(nMarker))
                return false;
        }
    }

    std::int32_t Size() const { return m_nOut; }

private:
    struct Component {
        std::int32_t nId, nH, nV;
    };

    void PutMarker(std::int32_t nMarker) {
        m_pOut[m_nOut++] = 0xFF;
        m_pOut[m_nOut++] = static_cast<std::uint8_t>(nMarker);
    }
    void Put(std::span<const std::uint8_t> bytes) {
        std::copy(bytes.begin(), bytes.end(), m_pOut + m_nOut);
        m_nOut += static_cast<std::int32_t>(bytes.size());
    }
    void PutSegment(std::int32_t nMarker, std::span<const std::uint8_t> content) {
        PutMarker(nMarker);
        const std::size_t nLength = content.size() + 2;
        m_pOut[m_nOut++] = static_cast<std::uint8_t>(nLength >> 8);
        m_pOut[m_nOut++] = static_cast<std::uint8_t>(nLength);
        Put(content);
    }

    // The segment behind the marker, which is there as a whole.
    bool TakeSegment(std::int32_t nMarker) {
        JpegReader reader(m_pBytes, m_nSize, m_nPos);
        if (reader.BytesLeft() < 2)
            return false;
        const std::int32_t nContent = reader.Word() - 2;
        if (nContent < 0 || nContent > reader.BytesLeft())
            return false;
        const std::span content(m_pBytes + m_nPos, static_cast<std::size_t>(nContent));
        m_nPos += nContent;
        switch (nMarker) {
        case M_APP0:
            return TakeApplication(nMarker, content, kJfif, 14);
        case M_APP14:
            return TakeApplication(nMarker, content, kAdobe, 12);
        case M_DQT:
            return Keep(nMarker, content, AreQuantTablesPlain(content));
        case M_DHT:
            return Keep(nMarker, content, AreHuffmanTablesPlain(content));
        case M_DRI:
            if (nContent == 2)
                m_nRestartInterval = content[0] << 8 | content[1];
            return Keep(nMarker, content, nContent == 2);
        case M_SOS:
            return Keep(nMarker, content, ReadScanHeader(content)) && CopyEntropyData(content);
        default:
            if (FrameTypeOf(nMarker) == JpegFrameType::None)
                return true; // left out
            return Keep(nMarker, content, ReadFrameHeader(nMarker, content));
        }
    }

    bool Keep(std::int32_t nMarker, std::span<const std::uint8_t> content, bool bPlain) {
        if (bPlain)
            PutSegment(nMarker, content);
        return bPlain;
    }

    // JFIF and Adobe: the fields alone, without a thumbnail and whatever else may stand behind them. A
    // browser looks at them before the first scan only, the decoder here at each.
    bool TakeApplication(std::int32_t nMarker, std::span<const std::uint8_t> content, std::string_view name,
                         std::size_t nFields) {
        if (content.size() < nFields || std::memcmp(content.data(), name.data(), name.size()) != 0)
            return true; // left out
        if (m_nScans > 0)
            return false;
        std::array<std::uint8_t, 14> fields{};
        std::copy_n(content.begin(), nFields, fields.begin());
        if (nMarker == M_APP0)
            fields[12] = fields[13] = 0; // the thumbnail's width and height
        m_bColourMarked = true;
        PutSegment(nMarker, std::span(fields).first(nFields));
        return true;
    }

    // Of 16-bit entries the decoder here keeps the low half.
    static bool AreQuantTablesPlain(std::span<const std::uint8_t> content) {
        for (; content.size() >= 65; content = content.subspan(65)) {
            if (content[0] > 3)
                return false;
        }
        return content.empty();
    }

    // Class, identifier and codes by the letter of T.81 B.2.4.2 and C.2: no code of ones alone, and no size
    // of a DC difference above 15.
    static bool AreHuffmanTablesPlain(std::span<const std::uint8_t> content) {
        while (content.size() >= 17) {
            if ((content[0] & 0xEC) != 0)
                return false;
            const bool bDc = content[0] >> 4 == 0;
            std::int32_t nCode = 0;
            std::size_t nValues = 0;
            for (std::int32_t nLength = 1; nLength <= 16; ++nLength, nCode <<= 1) {
                const std::uint8_t nCount = content[static_cast<std::size_t>(nLength)];
                nCode += nCount;
                nValues += nCount;
                if (nCode >= 1 << nLength)
                    return false;
            }
            content = content.subspan(17);
            if (nValues > 256 || nValues > content.size())
                return false;
            const auto values = content.first(nValues);
            if (bDc && std::ranges::any_of(values, [](std::uint8_t nSize) { return nSize > 15; }))
                return false;
            content = content.subspan(nValues);
        }
        return content.empty();
    }

    // The decoder has read this one, and checked what it goes by.
    bool ReadFrameHeader(std::int32_t nMarker, std::span<const std::uint8_t> content) {
        if (m_nComponents != 0 || FrameTypeOf(nMarker) == JpegFrameType::Unsupported || content.size() < 9)
            return false;
        m_bProgressive = FrameTypeOf(nMarker) == JpegFrameType::Progressive;
        m_nHeight = content[1] << 8 | content[2];
        m_nWidth = content[3] << 8 | content[4];
        m_nComponents = content[5];
        if ((m_nComponents != 1 && m_nComponents != 3) ||
            content.size() != 6 + 3 * static_cast<std::size_t>(m_nComponents))
            return false;
        for (std::int32_t i = 0; i < m_nComponents; ++i) {
            const auto entry = content.subspan(6 + 3 * static_cast<std::size_t>(i));
            const Component component{entry[0], entry[1] >> 4, entry[1] & 15};
            for (std::int32_t n = 0; n < i; ++n) {
                if (m_aComponents[n].nId == component.nId)
                    return false;
            }
            if (component.nH < 1 || component.nV < 1 || component.nH > kMostFactor ||
                component.nV > kMostFactor)
                return false;
            m_aComponents[i] = component;
        }
        return true;
    }

    // The components in the frame's order, the band and the approximation as T.81 B.2.3 and G.1.1.1 have
    // them.
    bool ReadScanHeader(std::span<const std::uint8_t> content) {
        if (m_nComponents == 0 || content.size() < 6)
            return false;
        const std::int32_t nCount = content[0];
        if (nCount < 1 || nCount > m_nComponents ||
            content.size() != 4 + 2 * static_cast<std::size_t>(nCount))
            return false;
        // Without a mark some take components that are called so for what they are called.
        if (m_nComponents == 3 && !m_bColourMarked && m_aComponents[0].nId == 'R' &&
            m_aComponents[1].nId == 'G' && m_aComponents[2].nId == 'B')
            return false;
        std::int32_t nComponent = 0;
        for (std::int32_t i = 0; i < nCount; ++i, ++nComponent) {
            const auto entry = content.subspan(1 + 2 * static_cast<std::size_t>(i));
            while (nComponent < m_nComponents && m_aComponents[nComponent].nId != entry[0])
                ++nComponent;
            if (nComponent == m_nComponents || (entry[1] & 0xCC) != 0)
                return false;
            m_nScanComponent = nComponent;
        }
        m_nScanComponents = nCount;
        ++m_nScans;
        const auto band = content.last(3);
        const std::int32_t nSs = band[0], nSe = band[1], nAh = band[2] >> 4, nAl = band[2] & 15;
        if (!m_bProgressive)
            return nCount == m_nComponents && nSs == 0 && nSe == 63 && band[2] == 0;
        const bool bBand = nSs == 0 ? nSe == 0 : nSs <= nSe && nSe <= 63 && nCount == 1;
        return bBand && nAl <= 13 && (nAh == 0 || nAl == nAh - 1);
    }

    // What the scan at hand restarts between: MCUs, of one component blocks (T.81 A.2).
    std::int64_t ScanUnits() const {
        std::int32_t nMostH = 1, nMostV = 1;
        for (std::int32_t i = 0; i < m_nComponents; ++i) {
            nMostH = std::max(nMostH, m_aComponents[i].nH);
            nMostV = std::max(nMostV, m_aComponents[i].nV);
        }
        std::int64_t nCols = CeilDivide(m_nWidth, 8 * nMostH);
        std::int64_t nRows = CeilDivide(m_nHeight, 8 * nMostV);
        if (m_nScanComponents == 1) {
            const Component& component = m_aComponents[m_nScanComponent];
            nCols = CeilDivide(CeilDivide(m_nWidth * component.nH, nMostH), 8);
            nRows = CeilDivide(CeilDivide(m_nHeight * component.nV, nMostV), 8);
        }
        return nCols * nRows;
    }

    // Up to the marker that ends the scan, which in a sequential stream ends the picture: a second pass over
    // it shows nowhere else. Restarts stand in their order, and are as many as the picture takes: the decoder
    // here takes any marker for the next restart, others go by its number.
    bool CopyEntropyData(std::span<const std::uint8_t> header) {
        const auto nBegin = static_cast<std::int32_t>(header.data() + header.size() - m_pBytes);
        std::int64_t nRestarts = 0;
        for (std::int32_t nBehind = nBegin;;) {
            const std::int32_t nMarker = SeekMarker(m_pBytes, m_nSize, nBehind);
            if (IsRestartMarker(nMarker)) {
                if (m_nRestartInterval == 0 || nMarker != M_RST0 + nRestarts % 8)
                    return false;
                ++nRestarts;
                continue;
            }
            if (nMarker == M_NONE || (!m_bProgressive && nMarker != M_EOI))
                return false;
            m_nPos = nBehind - 2;
            break;
        }
        if (m_nRestartInterval != 0 && nRestarts != (ScanUnits() - 1) / m_nRestartInterval)
            return false;
        // Fill bytes in front of the marker are no data.
        std::int32_t nEnd = m_nPos;
        while (nEnd > nBegin && m_pBytes[nEnd - 1] == 0xFF)
            --nEnd;
        Put({m_pBytes + nBegin, static_cast<std::size_t>(nEnd - nBegin)});
        return true;
    }

    const std::uint8_t* const m_pBytes;
    const std::int32_t m_nSize;
    std::uint8_t* const m_pOut;
    std::int32_t m_nPos = 0;
    std::int32_t m_nOut = 0;

    bool m_bColourMarked = false; // by JFIF or Adobe
    bool m_bProgressive = false;
    std::int32_t m_nWidth = 0;
    std::int32_t m_nHeight = 0;
    std::int32_t m_nComponents = 0;
    Component m_aComponents[3]{};
    std::int32_t m_nRestartInterval = 0;
    std::int32_t m_nScans = 0;
    std::int32_t m_nScanComponents = 0; // of the scan at hand: how many, and the last of them
    std::int32_t m_nScanComponent = 0;
};

} // namespace

bool CopyPictureSegments(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pOut,
                         std::int32_t* pnOutSize) {
    PictureCopier copier(pJpeg, nJpegSize, pOut);
    if (!copier.Run())
        return false;
    *pnOutSize = copier.Size();
    return true;
}
