#include "platform/utf8.h"

#include <cstdint>

#include "platform/text.h"

namespace platform {

namespace {

bool IsBetween(char32_t value, char32_t low, char32_t high) noexcept {
    return value >= low && value <= high;
}

void AppendUtf8(std::string& bytes, char32_t value) {
    const auto put = [&](char32_t byte) { bytes.push_back(static_cast<char>(byte)); };
    const auto putRest = [&](unsigned shift) { put(0x80 | (value >> shift & 0x3F)); };
    if (value < 0x80) {
        put(value);
    } else if (value < 0x800) {
        put(0xC0 | value >> 6);
        putRest(0);
    } else if (value < 0x10000) {
        put(0xE0 | value >> 12);
        putRest(6);
        putRest(0);
    } else {
        put(0xF0 | value >> 18);
        putRest(12);
        putRest(6);
        putRest(0);
    }
}

void AppendUtf16(std::u16string& text, char32_t value) {
    if (value < 0x10000) {
        text.push_back(static_cast<char16_t>(value));
    } else {
        text.push_back(static_cast<char16_t>(0xD800 | (value - 0x10000) >> 10));
        text.push_back(static_cast<char16_t>(0xDC00 | (value & 0x3FF)));
    }
}

template <class Unit>
bool IsAscii(Unit unit) noexcept {
    return (unit & ~0x7F) == 0;
}

// Most texts are ASCII from end to end. Copies the run at the head and gives its length.
template <class To, class From>
std::size_t AppendAscii(std::basic_string<To>& to, std::basic_string_view<From> from) {
    std::size_t length = 0;
    while (length < from.size() && IsAscii(from[length]))
        ++length;
    to.append(from.begin(), from.begin() + static_cast<std::ptrdiff_t>(length));
    return length;
}

// `take` appends what stands behind a run of ASCII and gives its length in the source; 0 ends the conversion
// with false.
template <class To, class From, class Take>
bool Convert(std::basic_string<To>& to, std::basic_string_view<From> from, Take take) {
    to.reserve(from.size());
    for (;;) {
        from.remove_prefix(AppendAscii(to, from));
        if (from.empty())
            return true;
        const std::size_t taken = take(from);
        if (taken == 0)
            return false;
        from.remove_prefix(taken);
    }
}

// What is not well-formed becomes `substitute`; where that is kNoCharacter it ends the conversion with false.
bool AppendWide(std::u16string& text, std::string_view bytes, char32_t substitute) {
    return Convert(text, bytes, [&](std::string_view rest) -> std::size_t {
        const DecodedCharacter head = DecodeUtf8(rest);
        const char32_t value = head.value == kNoCharacter ? substitute : head.value;
        if (value == kNoCharacter)
            return 0;
        AppendUtf16(text, value);
        return head.length;
    });
}

} // namespace

DecodedCharacter DecodeUtf8(std::string_view bytes) noexcept {
    const auto byteAt = [&](std::size_t n) { return static_cast<std::uint8_t>(bytes[n]); };
    const std::uint8_t lead = byteAt(0);
    if (lead < 0x80)
        return {lead, 1};
    if (!IsBetween(lead, 0xC2, 0xF4))
        return {kNoCharacter, 1};
    const std::size_t length = lead < 0xE0 ? 2 : lead < 0xF0 ? 3 : 4;
    // The second byte alone tells overlong forms, surrogates and values that are too large.
    const std::uint8_t low = lead == 0xE0 ? 0xA0 : lead == 0xF0 ? 0x90 : 0x80;
    const std::uint8_t high = lead == 0xED ? 0x9F : lead == 0xF4 ? 0x8F : 0xBF;
    char32_t value = lead & (0x7FU >> length);
    for (std::size_t n = 1; n < length; ++n) {
        if (n == bytes.size() || !IsBetween(byteAt(n), n == 1 ? low : 0x80, n == 1 ? high : 0xBF))
            return {kNoCharacter, n};
        value = value << 6 | (byteAt(n) & 0x3FU);
    }
    return {value, length};
}

DecodedCharacter DecodeUtf16(std::u16string_view text) noexcept {
    const char16_t first = text[0];
    if (!IsBetween(first, 0xD800, 0xDFFF))
        return {first, 1};
    if (first > 0xDBFF || text.size() < 2 || !IsBetween(text[1], 0xDC00, 0xDFFF))
        return {kNoCharacter, 1};
    return {0x10000 + ((first & 0x3FFU) << 10 | (text[1] & 0x3FFU)), 2};
}

std::u16string Utf8ToWide(std::string_view bytes) {
    std::u16string text;
    (void)AppendWide(text, bytes, kReplacement);
    return text;
}

std::string WideToUtf8(std::u16string_view text) {
    std::string bytes;
    (void)Convert(bytes, text, [&](std::u16string_view rest) {
        const DecodedCharacter head = DecodeUtf16(rest);
        AppendUtf8(bytes, head.value == kNoCharacter ? U'?' : head.value);
        return head.length;
    });
    return bytes;
}

std::optional<std::u16string> Utf8ToWideStrict(std::string_view bytes) {
    std::u16string text;
    if (!AppendWide(text, bytes, kNoCharacter))
        return std::nullopt;
    return text;
}

} // namespace platform
