#include "tools/rescomp/input.h"

#include <algorithm>
#include <charconv>

#include "platform/files.h"
#include "platform/text.h"

namespace rescomp {

namespace {

constexpr std::string_view kBlanks = " \t\r";

std::string_view Trim(std::string_view text) {
    const std::size_t begin = text.find_first_not_of(kBlanks);
    if (begin == std::string_view::npos)
        return {};
    return text.substr(begin, text.find_last_not_of(kBlanks) - begin + 1);
}

} // namespace

std::vector<Line> SplitLines(std::string_view content, const std::string& file) {
    std::vector<Line> lines;
    for (std::size_t number = 1; !content.empty(); ++number) {
        const std::size_t end = std::min(content.find('\n'), content.size());
        const std::string place = file + ", line " + std::to_string(number) + ": ";
        const std::string_view text = Trim(content.substr(0, end));
        if (!platform::Utf8ToWideStrict(text))
            throw InputError(place + "this is no UTF-8");
        if (!text.empty() && text[0] != '#')
            lines.push_back({text, place});
        content.remove_prefix(std::min(end + 1, content.size()));
    }
    return lines;
}

std::vector<std::string_view> SplitWords(std::string_view text, std::size_t most) {
    std::vector<std::string_view> words;
    for (text = Trim(text); !text.empty(); text = Trim(text)) {
        const std::size_t end =
            words.size() + 1 == most ? text.size() : std::min(text.find_first_of(kBlanks), text.size());
        words.push_back(text.substr(0, end));
        text.remove_prefix(end);
    }
    return words;
}

std::optional<std::uint16_t> ParseNumber(std::string_view text) {
    std::uint16_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

std::string ReadInput(const std::string& path) {
    auto content = platform::ReadWholeFile(path);
    if (!content)
        throw InputError(path + ": cannot be read");
    return *std::move(content);
}

} // namespace rescomp
