#include "phone/packet.h"

#include "phone/connection.h"
#include "phone/pictures.h"

namespace phone {
namespace {

constexpr std::string_view kMark = "MWP1";

std::uint64_t LittleEndian(std::string_view bytes, std::size_t at, std::size_t size) {
    std::uint64_t value = 0;
    for (std::size_t i = size; i > 0; --i) {
        value = value << 8U | static_cast<std::uint8_t>(bytes[at + i - 1]);
    }
    return value;
}

void Require(bool condition, const std::string& what) {
    if (!condition) {
        throw Ended(End::Failed, "the stream is none of this protocol: " + what);
    }
}

} // namespace

std::optional<Packet> PacketReader::Next() {
    const std::string_view bytes = std::string_view(m_bytes).substr(m_at);
    // Looked at as soon as it is there: another server's stream need not fill a header.
    Require(bytes.substr(0, kMark.size()) == kMark.substr(0, bytes.size()),
            "a picture begins with other bytes");
    if (bytes.size() < kPacketHeaderSize) {
        return std::nullopt;
    }
    const auto number = [&](std::size_t at, std::size_t size) { return LittleEndian(bytes, at, size); };
    const auto word = [&](std::size_t at) { return static_cast<unsigned>(number(at, 2)); };
    const auto headerSize = static_cast<std::size_t>(word(4));
    const auto size = static_cast<std::size_t>(number(20, 4));
    Require(headerSize >= kPacketHeaderSize && headerSize <= kLargestHeader,
            "a header of an impossible size");
    Require(size > 0 && size <= kLargestPicture, "a picture of an impossible size");
    Packet packet;
    packet.last = (word(6) & 1U) != 0;
    packet.unixMs = number(8, 8);
    packet.sequence = static_cast<std::uint32_t>(number(16, 4));
    packet.width = word(24);
    packet.height = word(26);
    Require(packet.sequence == m_sequence + 1,
            "picture " + std::to_string(packet.sequence) + " behind picture " + std::to_string(m_sequence));
    Require(word(28) + word(32) <= packet.width && word(30) + word(34) <= packet.height,
            "the source's picture reaches over the edge");
    if (bytes.size() < headerSize + size) {
        return std::nullopt;
    }
    packet.jpeg = bytes.substr(headerSize, size);
    const auto told = JpegSize(packet.jpeg);
    Require(told && told->width == packet.width && told->height == packet.height,
            "picture " + std::to_string(packet.sequence) + " is no JPEG of the size that its header tells");
    m_sequence = packet.sequence;
    m_at += headerSize + size;
    if (m_at == m_bytes.size() || m_at > kLargestPicture) {
        m_bytes.erase(0, m_at);
        m_at = 0;
    }
    return packet;
}

} // namespace phone
