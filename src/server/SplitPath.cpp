#include "server/SplitPath.h"

#include <optional>
#include <string>

namespace {

// Decoded segments of this many bytes and more are taken for an attack, not for a name.
constexpr std::size_t kSegmentLimit = 1024;

constexpr int HexDigit(char c) noexcept {
    if (c >= '0' && c <= '9')
        return c - '0';
    if (c >= 'a' && c <= 'f')
        return c - 'a' + 10;
    if (c >= 'A' && c <= 'F')
        return c - 'A' + 10;
    return -1;
}

// Nothing for a text that is no proper encoding.
std::optional<std::string> PercentDecode(std::string_view text) {
    std::string bytes;
    bytes.reserve(text.size());
    for (std::size_t i = 0; i < text.size(); ++i) {
        char c = text[i];
        if (c == '%') {
            if (text.size() - i < 3)
                return std::nullopt;
            const int nHigh = HexDigit(text[i + 1]);
            const int nLow = HexDigit(text[i + 2]);
            if (nHigh < 0 || nLow < 0 || (nHigh == 0 && nLow == 0))
                return std::nullopt;
            c = static_cast<char>(nHigh * 16 + nLow);
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
        // Back through the same code page, so that a page that cannot hold the bytes decides as it always
        // has.
        if (auto strict = platform::Utf8ToWideStrict(platform::ToNarrow(text, platform::kCodePageThread)))
            return *std::move(strict);
    }
    return text;
}

} // namespace

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
