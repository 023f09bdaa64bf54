// Which bytes of a file a request asks for (RFC 9110, section 14).
#pragma once

#include <cstdint>
#include <optional>
#include <string_view>

namespace host {

struct ByteRange {
    std::uint64_t first = 0;
    std::uint64_t last = 0; // belongs to it
    friend bool operator==(const ByteRange&, const ByteRange&) = default;
};
struct AskedRange {
    bool possible = true;           // false: none of the file's bytes are among those (416)
    std::optional<ByteRange> range; // nothing: the whole file
};
// Of the value of a Range line. What is no single range of bytes counts as none, as the standard allows.
AskedRange ReadRange(std::string_view value, std::uint64_t size) noexcept;

} // namespace host
