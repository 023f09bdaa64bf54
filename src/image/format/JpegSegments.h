// Bytes of a stream, and the segments that all readers take alike: JFIF and Adobe (T.81 B.2.4.6), and the
// entries of the frame header's and the scan header's lists.
#pragma once

#include <algorithm>
#include <cstdint>
#include <cstring>
#include <string_view>
#include <tuple>
#include <utility>

// How application segments begin.
inline constexpr std::string_view kJfif{"JFIF\0", 5};
inline constexpr std::string_view kJfxx{"JFXX\0", 5};
inline constexpr std::string_view kAdobe{"Adobe", 5};

// Reads forward over the position of its owner. Bytes that the stream does not have read as zero and leave
// the position at its end.
class JpegReader {
public:
    JpegReader(const std::uint8_t* pBytes, std::int32_t nSize, std::int32_t& nPos)
        : m_pBytes(pBytes), m_nSize(nSize), m_nPos(nPos) {}

    std::int32_t BytesLeft() const { return m_nSize - m_nPos; }
    const std::uint8_t* Next() const { return m_pBytes + m_nPos; }
    std::int32_t Byte() { return m_nPos < m_nSize ? m_pBytes[m_nPos++] : 0; }
    // Big-endian. A last byte without its partner is the high half, with a low half of zero.
    std::int32_t Word() {
        const std::int32_t nHigh = Byte();
        return nHigh << 8 | Byte();
    }
    // So many of them; zeros for those behind the end.
    void Bytes(std::uint8_t* pTo, std::int32_t nBytes) {
        const std::int32_t nThere = std::min(nBytes, BytesLeft());
        if (nThere > 0)
            std::memcpy(pTo, Next(), static_cast<std::size_t>(nThere));
        std::fill(pTo + nThere, pTo + nBytes, std::uint8_t{0});
        m_nPos += nThere;
    }
    // A byte's high half and its low one.
    std::pair<std::int32_t, std::int32_t> Halves() {
        const std::int32_t nByte = Byte();
        return {nByte >> 4, nByte & 15};
    }
    void Skip(std::int32_t nBytes) { m_nPos += std::clamp(nBytes, 0, BytesLeft()); }
    // Passes over a text, or stays where it is.
    bool SkipText(std::string_view text) {
        const auto nLength = static_cast<std::int32_t>(text.size());
        const bool bFound = BytesLeft() >= nLength && std::memcmp(Next(), text.data(), text.size()) == 0;
        m_nPos += bFound ? nLength : 0;
        return bFound;
    }

private:
    const std::uint8_t* m_pBytes;
    std::int32_t m_nSize;
    std::int32_t& m_nPos;
};

// What APP0 and APP14 say of a picture, as the engines have it among their fields.
struct JpegApplicationFields {
    bool m_bJfifFound = false;
    std::int32_t m_nJfifMajor = 0;
    std::int32_t m_nJfifMinor = 0;
    std::int32_t m_nJfifUnits = 0;
    std::int32_t m_nJfifXDensity = 0;
    std::int32_t m_nJfifYDensity = 0;
    std::int32_t m_nJfifThumbWidth = 0;
    std::int32_t m_nJfifThumbHeight = 0;
    bool m_bJfxxFound = false;
    std::int32_t m_nJfxxThumbType = 0;

    bool m_bAdobeFound = false;
    std::int32_t m_nAdobeVersion = 0;
    std::int32_t m_nAdobeFlags0 = 0;
    std::int32_t m_nAdobeFlags1 = 0;
    std::int32_t m_nAdobeTransform = 0;

    // From a segment of nContent bytes behind its length. JFIF 1.02 and its extension, which may stand in the
    // same segment or in one of its own; what is neither is left alone. The position may end anywhere within
    // the segment.
    void ReadJfif(JpegReader reader, std::int32_t nContent) {
        if (nContent >= 14 && reader.SkipText(kJfif)) {
            m_bJfifFound = true;
            m_nJfifMajor = reader.Byte();
            m_nJfifMinor = reader.Byte();
            m_nJfifUnits = reader.Byte();
            m_nJfifXDensity = reader.Word();
            m_nJfifYDensity = reader.Word();
            m_nJfifThumbWidth = reader.Byte();
            m_nJfifThumbHeight = reader.Byte();
            nContent -= 14;
        }
        if (nContent >= 6 && reader.SkipText(kJfxx)) {
            m_bJfxxFound = true;
            m_nJfxxThumbType = reader.Byte();
        }
    }

    void ReadAdobe(JpegReader reader, std::int32_t nContent) {
        if (nContent < 12 || !reader.SkipText(kAdobe))
            return;
        m_bAdobeFound = true;
        m_nAdobeVersion = reader.Word();
        m_nAdobeFlags0 = reader.Word();
        m_nAdobeFlags1 = reader.Word();
        m_nAdobeTransform = reader.Byte();
    }
};

// A component in the frame header (T.81 B.2.2), and in the scan header (B.2.3).
struct JpegFrameEntry {
    explicit JpegFrameEntry(JpegReader reader) : nId(reader.Byte()) {
        std::tie(nHSampling, nVSampling) = reader.Halves();
        nQuantSelector = reader.Byte();
    }
    std::int32_t nId;
    std::int32_t nHSampling; // 0 to 15, as they stand there
    std::int32_t nVSampling;
    std::int32_t nQuantSelector;
};
struct JpegScanEntry {
    explicit JpegScanEntry(JpegReader reader) : nId(reader.Byte()) {
        std::tie(nDcSelector, nAcSelector) = reader.Halves();
    }
    std::int32_t nId;
    std::int32_t nDcSelector;
    std::int32_t nAcSelector;
};

// What stands behind the scan header's components.
inline void ReadScanBand(JpegReader reader, std::int32_t& nSs, std::int32_t& nSe, std::int32_t& nAh,
                         std::int32_t& nAl) {
    nSs = reader.Byte();
    nSe = reader.Byte();
    std::tie(nAh, nAl) = reader.Halves();
}
