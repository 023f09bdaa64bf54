#include "server/Request.h"

#include <algorithm>

namespace {

constexpr char LowerOf(char c) noexcept {
    return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}

constexpr bool IsLineEnd(char c) noexcept {
    return c == '\n' || c == '\r';
}

// Each blank ends a token, also an empty one; what remains is a last token if it is not empty.
std::vector<std::string> Tokens(std::string_view line) {
    std::vector<std::string> tokens;
    for (std::size_t n = line.find(' '); n != std::string_view::npos; n = line.find(' ')) {
        tokens.emplace_back(line.substr(0, n));
        line.remove_prefix(n + 1);
    }
    if (!line.empty())
        tokens.emplace_back(line);
    return tokens;
}

// A decoded segment of this many bytes or more is refused: no name is that long.
constexpr std::size_t kSegmentLimit = 1024;

// Gives nothing for a text with a damaged escape, or one that is too long.
std::optional<std::string> PercentDecode(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            const int nByte = platform::HexByte(text.substr(i + 1));
            if (nByte <= 0)
                return std::nullopt;
            c = static_cast<char>(nByte);
            i += 2;
        }
        bytes.push_back(c);
        if (bytes.size() >= kSegmentLimit)
            return std::nullopt;
    }
    return bytes;
}

std::u16string DecodeSegment(std::u16string_view segment, bool bUtf8) {
    const auto bytes = PercentDecode(platform::ToUtf8(segment));
    if (!bytes)
        return {};
    std::u16string text = platform::ToWide(*bytes, platform::kCodePageThread);
    if (bUtf8) {
        // The bytes go through the code page and back, so that those that the page cannot hold are not taken
        // for UTF-8.
        if (auto strict = platform::Utf8ToWideStrict(platform::ToNarrow(text, platform::kCodePageThread)))
            return *std::move(strict);
    }
    return text;
}

} // namespace

bool CHTTPHeader::LessWithoutCase::operator()(std::string_view a, std::string_view b) const noexcept {
    return std::lexicographical_compare(a.begin(), a.end(), b.begin(), b.end(), [](char x, char y) {
        return static_cast<unsigned char>(LowerOf(x)) < static_cast<unsigned char>(LowerOf(y));
    });
}

std::optional<std::size_t> CHTTPHeader::Parse(std::string_view text) {
    m_oParams.clear();
    m_aFirstLine.clear();
    text = text.substr(0, text.find('\0'));

    std::size_t nAt = 0;
    while (nAt < text.size() && !IsLineEnd(text[nAt])) {
        const std::size_t nEnd = text.find('\n', nAt);
        if (nEnd == std::string_view::npos)
            return std::nullopt;
        std::string_view line = text.substr(nAt, nEnd - nAt);
        nAt = nEnd + 1;
        if (line.ends_with('\r'))
            line.remove_suffix(1);

        if (m_aFirstLine.empty()) {
            if (line.size() >= kFirstLineLimit)
                return std::nullopt;
            m_aFirstLine = Tokens(line);
            continue;
        }
        const std::size_t nColon = line.find(':');
        if (nColon == std::string_view::npos)
            return std::nullopt;
        std::string_view value = line.substr(nColon + 1);
        if (value.starts_with(' '))
            value.remove_prefix(1);
        m_oParams.insert_or_assign(std::string(line.substr(0, nColon)), std::string(value));
    }
    // The blank line that ends a head has to stand here.
    if (nAt >= text.size() || m_aFirstLine.empty())
        return std::nullopt;
    while (nAt < text.size() && IsLineEnd(text[nAt]))
        ++nAt;
    return nAt;
}

std::string CHTTPHeader::GetParam(std::string_view name) const {
    const auto it = m_oParams.find(name);
    return it == m_oParams.end() ? std::string() : it->second;
}

platform::Bstr SplitPath(const platform::Bstr& path, platform::Bstr& rest, bool bUtf8) {
    if (path.IsNull())
        return nullptr;
    const std::u16string_view text = path.View();
    std::size_t nCut = text.find(u'/');
    if (nCut == std::u16string_view::npos)
        nCut = text.find(u'?');

    const std::u16string_view segment = text.substr(0, nCut);
    rest = nCut == std::u16string_view::npos ? platform::Bstr() : platform::Bstr(text.substr(nCut + 1));
    if (segment.empty())
        return nCut == 0 ? platform::Bstr() : platform::Bstr(segment);
    return platform::Bstr(DecodeSegment(segment, bUtf8));
}

std::u16string_view TrimSlashes(std::u16string_view text) noexcept {
    while (text.ends_with(u'/'))
        text.remove_suffix(1);
    while (text.starts_with(u'/'))
        text.remove_prefix(1);
    return text;
}

QueryMap ParseQuery(std::u16string_view text) {
    QueryMap oQuery;
    while (!text.empty()) {
        const std::u16string_view piece = text.substr(0, text.find(u'&'));
        text.remove_prefix(std::min(piece.size() + 1, text.size()));
        const std::u16string_view key = piece.substr(0, piece.find(u'='));
        if (!key.empty())
            oQuery.insert_or_assign(std::u16string(key),
                                    std::u16string(piece.substr(std::min(key.size() + 1, piece.size()))));
    }
    return oQuery;
}
