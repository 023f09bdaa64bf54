#include "tools/jpeg/stream.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <string_view>

namespace jpegtool {
namespace {

// A hostile stream may hold a scan every few bytes: more of them are counted, not kept.
constexpr std::size_t kMostScans = 64;

// Reads from a piece of the stream; zeroes behind its end.
class Reader {
public:
    explicit Reader(std::span<const std::uint8_t> bytes) : m_bytes(bytes) {}

    std::size_t Left() const { return m_bytes.size(); }
    int Byte() {
        if (m_bytes.empty())
            return 0;
        const int value = m_bytes[0];
        m_bytes = m_bytes.subspan(1);
        return value;
    }
    int Word() {
        const int high = Byte();
        return high << 8 | Byte();
    }
    void Skip(std::size_t count) { m_bytes = m_bytes.subspan(std::min(count, m_bytes.size())); }
    bool Take(std::string_view text) {
        if (m_bytes.size() < text.size() || std::memcmp(m_bytes.data(), text.data(), text.size()) != 0)
            return false;
        Skip(text.size());
        return true;
    }
    std::string Text() const { return {m_bytes.begin(), m_bytes.end()}; }

private:
    std::span<const std::uint8_t> m_bytes;
};

void ReadFrame(int marker, Reader reader, StreamContent& content) {
    if (content.frames++ > 0)
        return;
    Frame frame;
    frame.marker = marker;
    frame.precision = reader.Byte();
    frame.height = reader.Word();
    frame.width = reader.Word();
    for (int left = reader.Byte(); left > 0 && reader.Left() >= 3; --left) {
        FrameComponent component;
        component.id = reader.Byte();
        const int factors = reader.Byte();
        component.h = factors >> 4;
        component.v = factors & 15;
        component.quantTable = reader.Byte();
        frame.components.push_back(component);
    }
    content.frame = std::move(frame);
}

void ReadScan(Reader reader, StreamContent& content) {
    if (++content.scanCount > kMostScans)
        return;
    Scan scan;
    for (int left = reader.Byte(); left > 0 && reader.Left() >= 2; --left) {
        scan.components.push_back(reader.Byte());
        reader.Byte();
    }
    scan.ss = reader.Byte();
    scan.se = reader.Byte();
    const int approximation = reader.Byte();
    scan.ah = approximation >> 4;
    scan.al = approximation & 15;
    content.scans.push_back(std::move(scan));
}

void ReadQuantTables(Reader reader, StreamContent& content) {
    while (reader.Left() > 0) {
        const int head = reader.Byte();
        const bool wide = head >> 4 != 0;
        content.quantTables[head & 15] = wide ? 16 : 8;
        reader.Skip(wide ? 128 : 64);
    }
}

void ReadHuffmanTables(Reader reader, StreamContent& content) {
    while (reader.Left() >= 17) {
        const int head = reader.Byte();
        int codes = 0;
        for (int length = 1; length <= 16; ++length)
            codes += reader.Byte();
        content.huffmanTables[{head >> 4, head & 15}] = codes;
        reader.Skip(static_cast<std::size_t>(codes));
    }
}

void ReadApplication(int marker, Reader reader, StreamContent& content) {
    using namespace std::string_view_literals;
    if (marker == 0xE0 && reader.Take("JFIF\0"sv)) {
        const int major = reader.Byte();
        content.jfif = {major, reader.Byte()};
    } else if (marker == 0xE1 && reader.Take("Exif\0"sv)) {
        content.exif = true;
    } else if (marker == 0xEE && reader.Take("Adobe"sv) && reader.Left() >= 7) {
        reader.Skip(6);
        content.adobeTransform = reader.Byte();
    }
}

void ReadSegment(int marker, Reader reader, StreamContent& content) {
    if (marker == 0xC4)
        return ReadHuffmanTables(reader, content);
    if (marker >= 0xC0 && marker <= 0xCF && marker != 0xC8 && marker != 0xCC)
        return ReadFrame(marker, reader, content);
    if (marker >= 0xE0 && marker <= 0xEF)
        return ReadApplication(marker, reader, content);
    if (marker == 0xDA)
        ReadScan(reader, content);
    else if (marker == 0xDB)
        ReadQuantTables(reader, content);
    else if (marker == 0xDD && content.scanCount == 0)
        content.restartInterval = reader.Word();
    else if (marker == 0xFE)
        content.comment = reader.Text();
}

} // namespace

StreamContent ReadStream(std::span<const std::uint8_t> stream) {
    StreamContent content;
    const auto where = [&](std::size_t position) { return " at byte " + std::to_string(position); };
    std::size_t at = 0;
    for (;;) {
        // Entropy-coded data is passed over like anything else that is no marker.
        while (at < stream.size() && stream[at] != 0xFF)
            ++at;
        while (at < stream.size() && stream[at] == 0xFF)
            ++at;
        if (at >= stream.size()) {
            content.fault = "no end-of-image marker";
            return content;
        }
        const int marker = stream[at++];
        if (marker == 0xD9) {
            content.endFound = true;
            content.bytesBehindEnd = stream.size() - at;
            return content;
        }
        if (marker == 0xD8)
            content.startFound = true;
        if (marker == 0x00 || marker == 0x01 || (marker >= 0xD0 && marker <= 0xD8))
            continue; // stuffing, and markers without a segment
        const std::size_t left = stream.size() - at;
        const std::size_t length = left >= 2 ? std::size_t{stream[at]} << 8 | stream[at + 1] : 0;
        if (length < 2 || length > left) {
            content.fault = "a segment that does not fit" + where(at - 2);
            return content;
        }
        ReadSegment(marker, Reader(stream.subspan(at + 2, length - 2)), content);
        at += length;
    }
}

} // namespace jpegtool
