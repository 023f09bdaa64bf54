// The bytes of one packed picture: a header of 36 bytes and a JPEG stream behind it. docs/viewing.md is the
// page for those who read them. All numbers are little-endian.
//
//   offset  size  field
//   0       4     the bytes "MWP1"
//   4       2     size of the header: 36. A reader skips what a longer one has behind these fields
//   6       2     flags: bit 0, the stream ends behind this picture
//   8       8     when the picture was packed, Unix milliseconds
//   16      4     sequence number, from 1
//   20      4     size of the JPEG stream
//   24      2, 2  width and height of the picture
//   28      2, 2  left and top of the source's picture in it
//   32      2, 2  width and height of the source's picture in it; outside is black
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
#include <iterator>

namespace kit {

// A number as the bytes of its size, the lowest first.
template <class Number>
void PutLittleEndian(std::uint8_t* to, Number value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        to[i] = static_cast<std::uint8_t>(value >> (8 * i) & 0xFF);
}

inline constexpr std::size_t kPackedHeaderBytes = 36;
inline constexpr std::uint16_t kPackedLast = 1;

struct Rectangle {
    int left = 0;
    int top = 0;
    int width = 0;
    int height = 0;
    friend bool operator==(const Rectangle&, const Rectangle&) = default;
};

struct PackedHeader {
    std::uint16_t flags = 0;
    std::uint64_t unixMs = 0;
    std::uint32_t sequence = 0;
    std::uint32_t size = 0;
    int width = 0;
    int height = 0;
    Rectangle content;
};

inline void WritePackedHeader(const PackedHeader& header, std::uint8_t* to) {
    constexpr std::array<std::uint8_t, 4> kMark{'M', 'W', 'P', '1'};
    for (std::size_t i = 0; i < kMark.size(); ++i)
        to[i] = kMark[i];
    PutLittleEndian(to + 4, static_cast<std::uint16_t>(kPackedHeaderBytes));
    PutLittleEndian(to + 6, header.flags);
    PutLittleEndian(to + 8, header.unixMs);
    PutLittleEndian(to + 16, header.sequence);
    PutLittleEndian(to + 20, header.size);
    const int sizes[] = {header.width,       header.height,        header.content.left,
                         header.content.top, header.content.width, header.content.height};
    for (std::size_t i = 0; i < std::size(sizes); ++i)
        PutLittleEndian(to + 24 + 2 * i, static_cast<std::uint16_t>(sizes[i]));
}

} // namespace kit
