// What an uploading phone says, byte for byte.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>

namespace support {

inline constexpr char kGrant[] = "\x0A";

inline std::string LittleEndian16(std::size_t value) {
    return {static_cast<char>(value & 0xFF), static_cast<char>(value >> 8)};
}

// 131 bytes. `password` is what stands in the field from its start, terminator or not.
inline std::string AuthRecord(std::string_view password, std::string_view prefix = {}) {
    std::string record(131, '\0');
    record.replace(0, prefix.size(), prefix);
    record.replace(67, password.size(), password);
    return record;
}

inline std::string StreamHeader(std::string_view bytes) {
    return LittleEndian16(bytes.size()).append(bytes);
}

inline std::string Frame(std::string_view body, std::uint8_t descriptor = 4) {
    return std::string(1, static_cast<char>(descriptor)) + LittleEndian16(body.size()) + std::string(body);
}

} // namespace support
