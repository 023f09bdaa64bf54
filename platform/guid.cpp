#include "platform/com.h"

#include <array>
#include <cstddef>

namespace platform {

namespace {

constexpr std::u16string_view kDigits = u"0123456789ABCDEF";
constexpr std::size_t kTextUnits = 38;
// Where a hyphen stands before the byte of that number.
constexpr bool HasHyphenBefore(std::size_t byte) {
    return byte == 4 || byte == 6 || byte == 8 || byte == 10;
}

// The bytes in the order of the text.
std::array<std::uint8_t, 16> BytesOf(const GUID& identifier) {
    std::array<std::uint8_t, 16> bytes{};
    for (std::size_t i = 0; i < 4; ++i)
        bytes[i] = static_cast<std::uint8_t>(identifier.Data1 >> (24 - 8 * i));
    for (std::size_t i = 0; i < 2; ++i) {
        bytes[4 + i] = static_cast<std::uint8_t>(identifier.Data2 >> (8 - 8 * i));
        bytes[6 + i] = static_cast<std::uint8_t>(identifier.Data3 >> (8 - 8 * i));
    }
    for (std::size_t i = 0; i < 8; ++i)
        bytes[8 + i] = identifier.Data4[i];
    return bytes;
}

// 16 for what is no digit.
unsigned DigitOf(char16_t unit) noexcept {
    if (unit >= u'0' && unit <= u'9')
        return static_cast<unsigned>(unit - u'0');
    const auto lower = static_cast<char16_t>(unit | 0x20U);
    return lower >= u'a' && lower <= u'f' ? static_cast<unsigned>(lower - u'a') + 10 : 16;
}

} // namespace

std::u16string GuidText(const GUID& identifier) {
    const auto bytes = BytesOf(identifier);
    std::u16string text = u"{";
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (HasHyphenBefore(i))
            text += u'-';
        text += kDigits[bytes[i] >> 4U];
        text += kDigits[bytes[i] & 15U];
    }
    return text += u'}';
}

std::optional<GUID> ParseGuid(std::u16string_view text) noexcept {
    if (text.size() != kTextUnits || text.front() != u'{' || text.back() != u'}')
        return std::nullopt;
    std::array<std::uint8_t, 16> bytes{};
    std::size_t at = 1;
    for (std::size_t i = 0; i < bytes.size(); ++i) {
        if (HasHyphenBefore(i) && text[at++] != u'-')
            return std::nullopt;
        const unsigned high = DigitOf(text[at]);
        const unsigned low = DigitOf(text[at + 1]);
        if (high > 15 || low > 15)
            return std::nullopt;
        bytes[i] = static_cast<std::uint8_t>(high << 4U | low);
        at += 2;
    }
    GUID identifier{};
    for (std::size_t i = 0; i < 4; ++i)
        identifier.Data1 = identifier.Data1 << 8U | bytes[i];
    identifier.Data2 = static_cast<std::uint16_t>(bytes[4] << 8U | bytes[5]);
    identifier.Data3 = static_cast<std::uint16_t>(bytes[6] << 8U | bytes[7]);
    for (std::size_t i = 0; i < 8; ++i)
        identifier.Data4[i] = bytes[8 + i];
    return identifier;
}

} // namespace platform
