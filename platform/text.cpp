// Texts as protocols and terminals want them.

#include "platform/text.h"

#include <algorithm>
#include <array>
#include <cstdio>

namespace platform {

namespace {

constexpr std::string_view kAlphabet = "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789+/";

} // namespace

std::string Printable(std::string_view text) {
    // Through wide text, which replaces what is no UTF-8.
    std::string result;
    for (const char c : ToUtf8(FromUtf8(text))) {
        const auto byte = static_cast<unsigned char>(c);
        if (byte >= 32 && byte != 127) {
            result += c;
            continue;
        }
        std::array<char, 8> escape{};
        std::snprintf(escape.data(), escape.size(), "\\x%02x", static_cast<unsigned>(byte));
        result += escape.data();
    }
    return result;
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
