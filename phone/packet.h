// The pictures in a viewing phone's stream: a header of 36 bytes, or more, and a JPEG stream behind it, one
// after the other. Numbers are little-endian.
//
//   offset  size  field
//   0       4     the bytes "MWP1"
//   4       2     size of the header, at least 36
//   6       2     flags: bit 0, the stream ends behind this picture
//   8       8     when the picture was packed, Unix milliseconds
//   16      4     sequence number, from 1, without gaps
//   20      4     size of the JPEG stream
//   24      2, 2  width and height of the picture
//   28      2, 2  left and top of the source's picture in it
//   32      2, 2  width and height of the source's picture in it
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace phone {

inline constexpr std::size_t kPacketHeaderSize = 36;
inline constexpr std::size_t kLargestHeader = 1024;
inline constexpr std::size_t kLargestPicture = std::size_t{16} << 20;

struct Packet {
    bool last = false;
    std::uint64_t unixMs = 0;
    std::uint32_t sequence = 0;
    unsigned width = 0;
    unsigned height = 0;
    std::string jpeg;
};

// Takes the bytes as they come and gives whole pictures. Holds at most one picture and what was fed last.
class PacketReader {
public:
    void Feed(std::string_view bytes) { m_bytes += bytes; }
    // The next picture; nothing until more bytes have come. Throws Ended for bytes that are no such
    // stream, and is of no use then.
    std::optional<Packet> Next();
    // Whether a picture has begun and is not whole.
    [[nodiscard]] bool IsInside() const noexcept { return m_at < m_bytes.size(); }

private:
    std::string m_bytes;
    std::size_t m_at = 0; // what stands before it has been given
    std::uint32_t m_sequence = 0;
};

} // namespace phone
