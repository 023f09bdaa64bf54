#include "platform/configdoc/tree.h"

#include <algorithm>
#include <charconv>

#include "platform/configdoc/configdoc.h"
#include "platform/utf8.h"

namespace platform {

namespace {

// Extensible Markup Language 1.0, production 2.
constexpr bool IsXmlCharacter(char32_t c) noexcept {
    return c >= 0x20 ? (c < 0xD800 || c > 0xDFFF) && c != 0xFFFE && c != 0xFFFF && c <= 0x10FFFF
                     : c == '\t' || c == '\n' || c == '\r';
}

constexpr bool IsNameStart(char c) noexcept {
    return (c >= 'a' && c <= 'z') || (c >= 'A' && c <= 'Z') || c == '_' ||
           static_cast<unsigned char>(c) >= 0x80;
}

// The walk. Each member function takes what it names off the head of m_rest, or says false.
class Walk {
public:
    explicit Walk(std::string_view document) noexcept : m_rest(document) {}

    bool Document() noexcept {
        while (!m_rest.empty()) {
            if (!(m_rest.front() == '<' ? Markup() : Text()))
                return false;
        }
        return true;
    }

private:
    bool Markup() noexcept {
        if (m_rest.starts_with("<!--"))
            return PastEnd(4, "-->");
        if (m_rest.starts_with("<![CDATA["))
            return PastEnd(9, "]]>");
        if (m_rest.starts_with("<?"))
            return PastEnd(2, "?>");
        // The only other one is a document type, which can declare entities and point to other files.
        return !m_rest.starts_with("<!") && Tag();
    }

    bool PastEnd(std::size_t start, std::string_view end) noexcept {
        const std::size_t at = m_rest.find(end, start);
        if (at == std::string_view::npos)
            return false;
        m_rest.remove_prefix(at + end.size());
        return CountMark();
    }

    bool Text() noexcept {
        const std::string_view text = m_rest.substr(0, m_rest.find('<'));
        m_rest.remove_prefix(text.size());
        return References(text);
    }

    bool Tag() noexcept {
        const bool isEnd = m_rest.starts_with("</");
        std::size_t attributes = 0;
        std::size_t at = 1;
        for (; at < m_rest.size() && m_rest[at] != '>'; ++at) {
            const char c = m_rest[at];
            if (c == '<')
                return false;
            if (c != '"' && c != '\'')
                continue;
            const std::size_t end = m_rest.find(c, at + 1);
            if (end == std::string_view::npos || ++attributes > kElementAttributesLimit || !CountMark())
                return false;
            const std::string_view value = m_rest.substr(at + 1, end - at - 1);
            if (value.find('<') != std::string_view::npos || !References(value))
                return false;
            at = end;
        }
        if (at >= m_rest.size())
            return false;
        const bool isEmpty = m_rest[at - 1] == '/';
        m_rest.remove_prefix(at + 1);
        if (isEnd)
            return m_depth-- > 0 && CountMark();
        if (!isEmpty)
            ++m_depth;
        return m_depth <= kDocumentDepthLimit && CountMark();
    }

    static bool References(std::string_view text) noexcept {
        for (std::size_t at = text.find('&'); at != std::string_view::npos; at = text.find('&')) {
            const std::size_t end = text.find(';', at);
            if (end == std::string_view::npos || !IsReference(text.substr(at + 1, end - at - 1)))
                return false;
            text.remove_prefix(end + 1);
        }
        return true;
    }

    static bool IsReference(std::string_view name) noexcept {
        constexpr std::string_view kNames[] = {"lt", "gt", "amp", "apos", "quot"};
        if (!name.starts_with('#'))
            return std::ranges::find(kNames, name) != std::end(kNames);
        const bool isHex = name.starts_with("#x");
        name.remove_prefix(isHex ? 2 : 1);
        std::uint32_t value = 0;
        const char* const end = name.data() + name.size();
        const auto read = std::from_chars(name.data(), end, value, isHex ? 16 : 10);
        return read.ec == std::errc{} && read.ptr == end && IsXmlCharacter(value);
    }

    bool CountMark() noexcept { return ++m_marks <= kDocumentMarksLimit; }

    std::string_view m_rest;
    std::size_t m_depth = 0;
    std::size_t m_marks = 0;
};

} // namespace

bool IsXmlText(std::string_view utf8) noexcept {
    while (!utf8.empty()) {
        const auto byte = static_cast<unsigned char>(utf8.front());
        const DecodedCharacter c = byte < 0x80 ? DecodedCharacter{byte, 1} : DecodeUtf8(utf8);
        if (!IsXmlCharacter(c.value))
            return false;
        utf8.remove_prefix(c.length);
    }
    return true;
}

bool IsXmlName(std::string_view utf8) noexcept {
    constexpr std::string_view kInside = "-.0123456789";
    const auto isPart = [&](std::string_view part) {
        return !part.empty() && IsNameStart(part.front()) && std::ranges::all_of(part, [&](char c) {
            return IsNameStart(c) || kInside.find(c) != std::string_view::npos;
        });
    };
    const std::size_t colon = utf8.find(':');
    return IsXmlText(utf8) && isPart(utf8.substr(0, colon)) &&
           (colon == std::string_view::npos || isPart(utf8.substr(colon + 1)));
}

std::optional<std::string> XmlTextOf(std::u16string_view text) {
    // The conversion puts something else for half a character; that must not pass for the text.
    for (std::size_t at = 0; at < text.size();) {
        const char16_t unit = text[at];
        const DecodedCharacter c =
            unit < 0xD800 || unit > 0xDFFF ? DecodedCharacter{unit, 1} : DecodeUtf16(text.substr(at));
        if (!IsXmlCharacter(c.value))
            return std::nullopt;
        at += c.length;
    }
    return WideToUtf8(text);
}

bool IsHarmless(std::string_view document) noexcept {
    return document.size() <= kDocumentBytesLimit && IsXmlText(document) && Walk(document).Document();
}

} // namespace platform
