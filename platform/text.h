// Wide text is UTF-16 in char16_t. Narrow text is bytes in a code page.
//
// BSTR: a wide string with its length in bytes in the four bytes before it and a terminating zero behind it.
// It is also used as a counted byte string, so its byte length can be odd. A null BSTR and an empty one are
// equal texts. Whoever receives a BSTR through an out parameter owns it and frees it with SysFreeString.
#pragma once

#include <algorithm>
#include <compare>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>

#include "platform/export.h"

using BSTR = char16_t*;

// Makers return null when memory is short or the length does not fit 32 bits; a null source gives zeroed
// content of the length asked for (or null, for SysAllocString). Contents of more than 2 GiB are refused.
MORROW_PLATFORM_API BSTR SysAllocString(const char16_t* text) noexcept;
MORROW_PLATFORM_API BSTR SysAllocStringLen(const char16_t* text, std::uint32_t units) noexcept;
MORROW_PLATFORM_API BSTR SysAllocStringByteLen(const void* bytes, std::uint32_t count) noexcept;
MORROW_PLATFORM_API void SysFreeString(BSTR text) noexcept;
MORROW_PLATFORM_API std::uint32_t SysStringLen(const char16_t* text) noexcept;     // whole units; 0 for null
MORROW_PLATFORM_API std::uint32_t SysStringByteLen(const char16_t* text) noexcept; // 0 for null

namespace platform {

// Owner of one BSTR. Copies are made byte for byte. Not safe to share between threads without a lock.
// Makers and copies throw std::bad_alloc when memory is short.
class MORROW_PLATFORM_API Bstr {
public:
    Bstr() noexcept = default;
    Bstr(std::nullptr_t) noexcept {}
    explicit Bstr(std::u16string_view text);
    Bstr(const Bstr& other);
    Bstr(Bstr&& other) noexcept : m_text(std::exchange(other.m_text, nullptr)) {}
    Bstr& operator=(Bstr other) noexcept {
        std::swap(m_text, other.m_text);
        return *this;
    }
    ~Bstr() { SysFreeString(m_text); }

    static Bstr FromBytes(std::string_view bytes);
    // Takes ownership of a text that somebody made.
    static Bstr Adopt(BSTR text) noexcept {
        Bstr owner;
        owner.m_text = text;
        return owner;
    }
    // A copy of a BSTR that stays its owner's; null gives null.
    static Bstr CopyOf(const char16_t* bstr);

    [[nodiscard]] BSTR Get() const noexcept { return m_text; }
    [[nodiscard]] bool IsNull() const noexcept { return m_text == nullptr; }
    [[nodiscard]] std::uint32_t Length() const noexcept { return SysStringLen(m_text); }
    [[nodiscard]] std::uint32_t ByteLength() const noexcept { return SysStringByteLen(m_text); }
    [[nodiscard]] std::u16string_view View() const noexcept {
        return m_text == nullptr ? std::u16string_view{} : std::u16string_view{m_text, Length()};
    }
    [[nodiscard]] std::string_view Bytes() const noexcept {
        return m_text == nullptr ? std::string_view{}
                                 : std::string_view{reinterpret_cast<const char*>(m_text), ByteLength()};
    }
    // Gives the text away.
    [[nodiscard]] BSTR Detach() noexcept { return std::exchange(m_text, nullptr); }
    // For out parameters: frees what is held and gives the place.
    [[nodiscard]] BSTR* Receive() noexcept {
        SysFreeString(std::exchange(m_text, nullptr));
        return &m_text;
    }
    friend bool operator==(const Bstr& a, const Bstr& b) noexcept { return a.View() == b.View(); }

private:
    BSTR m_text = nullptr;
};

// The text of a BSTR that stays its owner's.
inline std::u16string_view ViewOf(const char16_t* bstr) noexcept {
    return bstr == nullptr ? std::u16string_view{} : std::u16string_view{bstr, SysStringLen(bstr)};
}

// Letters A to Z as small ones; every other byte stays as it is.
constexpr char ToLowerAscii(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
// Whether two texts differ at most in the case of those letters.
constexpr bool EqualsIgnoringCase(std::string_view a, std::string_view b) noexcept {
    return std::equal(a.begin(), a.end(), b.begin(), b.end(),
                      [](char x, char y) { return ToLowerAscii(x) == ToLowerAscii(y); });
}

// Compares the whole of the shorter text even where the first bytes differ, so that the time taken does not
// tell how many of them are right.
constexpr bool EqualInConstantTime(std::string_view a, std::string_view b) noexcept {
    unsigned difference = a.size() == b.size() ? 0 : 1;
    for (std::size_t i = 0; i < std::min(a.size(), b.size()); ++i)
        difference |= static_cast<unsigned>(a[i] ^ b[i]) & 0xFFU;
    return difference == 0;
}

// The byte that the text's first two characters name as hexadecimal digits; -1 where they are none.
constexpr int HexByte(std::string_view text) noexcept {
    const auto digit = [](char c) {
        return c >= '0' && c <= '9' ? c - '0' : c >= 'a' && c <= 'f' ? c - 'a' + 10 : -1;
    };
    if (text.size() < 2)
        return -1;
    const int high = digit(ToLowerAscii(text[0])), low = digit(ToLowerAscii(text[1]));
    return high < 0 || low < 0 ? -1 : high * 16 + low;
}

// What stands for a character in XML: one of its five entities, or nothing where it stands for itself.
constexpr std::u16string_view EntityOf(char16_t c) noexcept {
    constexpr std::pair<char16_t, std::u16string_view> entities[] = {
        {u'<', u"&lt;"}, {u'>', u"&gt;"}, {u'&', u"&amp;"}, {u'\'', u"&apos;"}, {u'"', u"&quot;"}};
    for (const auto& [character, entity] : entities) {
        if (c == character)
            return entity;
    }
    return {};
}

// Code pages by number: 65001 UTF-8, 1250 to 1258 Windows single-byte pages, 20127 ASCII, 28591 Latin 1. In a
// single-byte page one byte stands for one unit; letters of page 1258 are not composed with accents behind
// them.
inline constexpr unsigned kCodePageAnsi = 0;   // the system's
inline constexpr unsigned kCodePageThread = 3; // the calling thread's
inline constexpr unsigned kCodePageUtf8 = 65001;

// The process's code page (UTF-8 at first) and the calling thread's (the process's while it has none of its
// own). A page that cannot be converted is refused with false.
MORROW_PLATFORM_API unsigned SystemCodePage() noexcept;
MORROW_PLATFORM_API bool SetSystemCodePage(unsigned page) noexcept;
MORROW_PLATFORM_API unsigned ThreadCodePage() noexcept;
MORROW_PLATFORM_API bool SetThreadCodePage(unsigned page) noexcept; // 0 takes the thread's own page away

// The ANSI code page of a configured language: 1049 gives 1251, 1062 1257, 1068 1254, the western ones 1252;
// 0, no language configured, gives UTF-8.
MORROW_PLATFORM_API unsigned CodePageOfLanguage(unsigned languageId) noexcept;

// The abbreviated name of a language: its code in capitals, "ENU" for 1033. The language 0 has that of the
// system's default, which is English. Empty for a language that is not in the table.
MORROW_PLATFORM_API std::u16string_view AbbreviatedLanguageName(std::uint32_t languageId) noexcept;

// The two letters of ISO 639 of a language ("en" for 1033) and its own name for itself. Empty for a language
// that is not in the table.
MORROW_PLATFORM_API std::string_view LanguageCode(std::uint32_t languageId) noexcept;
MORROW_PLATFORM_API std::string_view LanguageName(std::uint32_t languageId) noexcept; // UTF-8

// The locale of the calling thread, which says in what manner numbers and dates are read and written. It is
// the system's default on a new thread, and no function of this layer goes by it: nothing here is written in
// the manner of a country.
inline constexpr std::uint32_t kLocaleSystemDefault = 2048;
MORROW_PLATFORM_API std::uint32_t ThreadLocale() noexcept;
MORROW_PLATFORM_API void SetThreadLocale(std::uint32_t locale) noexcept;

// Conversions. What the target cannot hold becomes "?" in narrow text and U+FFFD in wide text; they never
// fail on content, only on memory (std::bad_alloc). An unknown page converts as UTF-8.
MORROW_PLATFORM_API std::u16string ToWide(std::string_view bytes, unsigned page = kCodePageThread);
MORROW_PLATFORM_API std::string ToNarrow(std::u16string_view text, unsigned page = kCodePageThread);
// Strict: nothing for bytes that are not valid UTF-8 (overlong forms, surrogates and values above U+10FFFF
// included).
MORROW_PLATFORM_API std::optional<std::u16string> Utf8ToWideStrict(std::string_view bytes);
inline std::string ToUtf8(std::u16string_view text) {
    return ToNarrow(text, kCodePageUtf8);
}
inline std::u16string FromUtf8(std::string_view bytes) {
    return ToWide(bytes, kCodePageUtf8);
}

// Control characters of Unicode, C0 and C1, and those that turn the direction of what stands around them or
// end a line: a terminal obeys what it is sent, and a name must not rearrange the line that it stands in.
MORROW_PLATFORM_API bool IsControl(char32_t character) noexcept;
// UTF-8; what is none has no such character.
MORROW_PLATFORM_API bool HasControl(std::string_view text);
// These characters made visible, and bytes that are no UTF-8 replaced.
MORROW_PLATFORM_API std::string Printable(std::string_view text);

// The standard alphabet of RFC 4648, section 4, with padding and without line breaks. Reading gives nothing
// for a text that has another character or one digit too many; the padding may be missing.
MORROW_PLATFORM_API std::string Base64(std::string_view bytes);
MORROW_PLATFORM_API std::optional<std::string> DecodeBase64(std::string_view text);

} // namespace platform
