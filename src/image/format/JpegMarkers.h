// Marker codes of a JPEG stream, the byte behind 0xFF (T.81 Table B.1), the frames that they begin, and the
// search for them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

enum JpegMarker : std::int32_t {
    M_NONE = 0x00,
    M_SOF0 = 0xC0, // baseline
    M_SOF1 = 0xC1, // extended sequential
    M_SOF2 = 0xC2, // progressive
    M_SOF3 = 0xC3,
    M_DHT = 0xC4,
    M_SOF5 = 0xC5,
    M_SOF6 = 0xC6,
    M_SOF7 = 0xC7,
    M_SOF9 = 0xC9,
    M_SOF10 = 0xCA,
    M_SOF11 = 0xCB,
    M_SOF13 = 0xCD,
    M_SOF14 = 0xCE,
    M_SOF15 = 0xCF,
    M_RST0 = 0xD0,
    M_RST7 = 0xD7,
    M_SOI = 0xD8,
    M_EOI = 0xD9,
    M_SOS = 0xDA,
    M_DQT = 0xDB,
    M_DRI = 0xDD,
    M_APP0 = 0xE0,
    M_APP14 = 0xEE,
    M_COM = 0xFE,
    M_FILL = 0xFF,
};

constexpr bool IsRestartMarker(std::int32_t nMarker) {
    return nMarker >= M_RST0 && nMarker <= M_RST7;
}

// The frames that are read: 8-bit samples and Huffman coding. Lossless, hierarchical and arithmetic ones are
// known and refused.
enum class JpegFrameType { None, Sequential, Progressive, Unsupported };

constexpr JpegFrameType FrameTypeOf(std::int32_t nMarker) {
    switch (nMarker) {
    case M_SOF0:
    case M_SOF1:
        return JpegFrameType::Sequential;
    case M_SOF2:
        return JpegFrameType::Progressive;
    case M_SOF3:
    case M_SOF5:
    case M_SOF6:
    case M_SOF7:
    case M_SOF9:
    case M_SOF10:
    case M_SOF11:
    case M_SOF13:
    case M_SOF14:
    case M_SOF15:
        return JpegFrameType::Unsupported;
    default:
        return JpegFrameType::None;
    }
}

// The next marker at or behind nPos, which is left behind it; M_NONE and nPos at the end where there is none.
// 0xFF bytes in front of a marker are padding; a zero behind one is stuffing of entropy-coded data. nPos lies
// within 0..nSize; the bytes may be null when nSize is 0.
inline std::int32_t SeekMarker(const std::uint8_t* pBytes, std::int32_t nSize, std::int32_t& nPos) {
    while (nPos < nSize) {
        const void* const pFound = std::memchr(pBytes + nPos, 0xFF, static_cast<std::size_t>(nSize - nPos));
        nPos = pFound ? static_cast<std::int32_t>(static_cast<const std::uint8_t*>(pFound) - pBytes) : nSize;
        while (nPos < nSize && pBytes[nPos] == 0xFF)
            ++nPos;
        if (nPos < nSize && pBytes[nPos++] != M_NONE)
            return pBytes[nPos - 1];
    }
    return M_NONE;
}
