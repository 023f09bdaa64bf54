#include "server/HTTPHeader.h"

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
    // Here stands the blank line that ends a head, or the text is over without one.
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
