// UTF-8 (RFC 3629) to UTF-16 and back. Private to this folder.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

namespace platform {

// One character at the head of a text.
struct DecodedCharacter {
    char32_t value;     // kNoCharacter where the head is not well-formed
    std::size_t length; // units or bytes that it takes, at least 1
};

inline constexpr char32_t kNoCharacter = 0xFFFFFFFF;
inline constexpr char16_t kReplacement = 0xFFFD;

// The head of a text that is not empty. What is not well-formed (overlong, a surrogate, above U+10FFFF, cut
// off) is the longest run of bytes that could have begun a character, as the Unicode standard recommends for
// replacement.
DecodedCharacter DecodeUtf8(std::string_view bytes) noexcept;
// A surrogate without its partner is one unit that is not well-formed.
DecodedCharacter DecodeUtf16(std::u16string_view text) noexcept;

std::u16string Utf8ToWide(std::string_view bytes);
std::string WideToUtf8(std::u16string_view text);

} // namespace platform
