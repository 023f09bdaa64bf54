// ZIP archives made field by field.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include <zlib.h>

namespace support {

inline std::string Le16(std::uint32_t value) {
    return {static_cast<char>(value), static_cast<char>(value >> 8)};
}
inline std::string Le32(std::uint32_t value) {
    return Le16(value) + Le16(value >> 16);
}

// Text of a language file.
inline std::string Utf16(std::u16string_view text) {
    std::string bytes = "\xFF\xFE";
    for (const char16_t c : text)
        bytes += Le16(c);
    return bytes;
}

struct ZipItem {
    std::string name;
    std::string data;
    bool deflated = true;
    std::string extra = {}; // of the local header
    std::uint32_t madeBy = 0x0314;
    std::uint32_t attributes = 0;
    std::uint32_t time = 0;
    std::uint32_t date = 0x21;
};

inline std::string Deflated(const std::string& data) {
    z_stream stream{};
    deflateInit2(&stream, 9, Z_DEFLATED, -MAX_WBITS, 8, Z_DEFAULT_STRATEGY);
    std::string packed(deflateBound(&stream, data.size()), '\0');
    stream.next_in = reinterpret_cast<Bytef*>(const_cast<char*>(data.data()));
    stream.avail_in = static_cast<uInt>(data.size());
    stream.next_out = reinterpret_cast<Bytef*>(packed.data());
    stream.avail_out = static_cast<uInt>(packed.size());
    deflate(&stream, Z_FINISH);
    packed.resize(stream.total_out);
    deflateEnd(&stream);
    return packed;
}

inline std::string EndRecord(std::size_t items, std::size_t size, std::size_t offset,
                             const std::string& comment = "") {
    const auto number = [](std::size_t value) { return static_cast<std::uint32_t>(value); };
    return "PK\5\6" + Le32(0) + Le16(number(items)) + Le16(number(items)) + Le32(number(size)) +
           Le32(number(offset)) + Le16(number(comment.size())) + comment;
}

inline std::string Zip(const std::vector<ZipItem>& items, const std::string& comment = "") {
    const auto number = [](std::size_t value) { return static_cast<std::uint32_t>(value); };
    std::string archive;
    std::string central;
    for (const ZipItem& item : items) {
        const std::string packed = item.deflated ? Deflated(item.data) : item.data;
        const std::uint32_t crc =
            number(crc32_z(0, reinterpret_cast<const Bytef*>(item.data.data()), item.data.size()));
        const std::string common = Le16(0) + Le16(item.deflated ? 8 : 0) + Le16(item.time) + Le16(item.date) +
                                   Le32(crc) + Le32(number(packed.size())) + Le32(number(item.data.size())) +
                                   Le16(number(item.name.size()));
        central += "PK\1\2" + Le16(item.madeBy) + Le16(20) + common + Le16(0) + Le16(0) + Le32(0) +
                   Le32(item.attributes) + Le32(number(archive.size())) + item.name;
        archive +=
            "PK\3\4" + Le16(20) + common + Le16(number(item.extra.size())) + item.name + item.extra + packed;
    }
    return archive + central + EndRecord(items.size(), central.size(), archive.size(), comment);
}

} // namespace support
