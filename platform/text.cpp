// Texts as protocols and terminals want them.

#include "platform/text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace platform {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

// All of them are single UTF-16 code units.
bool IsControl(char32_t c) noexcept {
    return c < 0x20 || (c >= 0x7F && c <= 0x9F) || c == 0x061C || c == 0x200E || c == 0x200F ||
           (c >= 0x2028 && c <= 0x202E) || (c >= 0x2066 && c <= 0x2069);
}

bool HasControl(std::string_view text) {
    return std::ranges::any_of(FromUtf8(text), [](char16_t c) { return IsControl(c); });
}

std::string Printable(std::string_view text) {
    std::u16string result;
    for (const char16_t c : FromUtf8(text)) {
        if (!IsControl(c)) {
            result += c;
            continue;
        }
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), c < 0x100 ? "\\x%02x" : "\\u%04x",
                      static_cast<unsigned>(c));
        result += FromUtf8(escape.data());
    }
    return ToUtf8(result);
}

std::string Base64(std::string_view bytes) {
    std::string text;
    text.reserve((bytes.size() + 2) / 3 * 4);
    while (!bytes.empty()) {
        // Three bytes are four digits of six bits; fewer bytes are one digit more than bytes, and padding.
        const std::size_t count = std::min<std::size_t>(bytes.size(), 3);
        std::uint32_t bits = 0;
        for (std::size_t i = 0; i < 3; ++i)
            bits = bits << 8U | (i < count ? static_cast<std::uint8_t>(bytes[i]) : 0U);
        for (std::size_t i = 0; i < 4; ++i)
            text += i <= count ? kAlphabet[bits >> (18 - 6 * i) & 63U] : '=';
        bytes.remove_prefix(count);
    }
    return text;
}

std::optional<std::string> DecodeBase64(std::string_view text) {
    while (text.ends_with('='))
        text.remove_suffix(1);
    std::string bytes;
    std::uint32_t bits = 0;
    int count = 0;
    for (const char c : text) {
        const std::size_t digit = kAlphabet.find(c);
        if (digit == std::string_view::npos)
            return std::nullopt;
        bits = bits << 6 | static_cast<std::uint32_t>(digit);
        count += 6;
        if (count >= 8) {
            count -= 8;
            bytes += static_cast<char>(bits >> count & 0xFF);
        }
    }
    return count < 6 ? std::optional(bytes) : std::nullopt;
}

} // namespace platform
