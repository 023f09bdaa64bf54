// Small text files of the data folder: one record a line, fields separated by tabs, "#" begins a comment
// line.
#pragma once

#include <charconv>
#include <chrono>
#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

struct TextLine {
    std::size_t number = 0; // from 1
    std::vector<std::string> fields;
};

// Empty lines and comments are left out. A line may end in CR LF.
inline std::vector<TextLine> ReadTextTable(std::string_view content) {
    std::vector<TextLine> lines;
    for (std::size_t number = 1; !content.empty(); ++number) {
        const auto end = content.find('\n');
        std::string_view line = content.substr(0, end);
        content.remove_prefix(end == std::string_view::npos ? content.size() : end + 1);
        if (line.ends_with('\r'))
            line.remove_suffix(1);
        if (line.empty() || line.front() == '#')
            continue;
        TextLine record{number, {}};
        for (;;) {
            const auto tab = line.find('\t');
            record.fields.emplace_back(line.substr(0, tab));
            if (tab == std::string_view::npos)
                break;
            line.remove_prefix(tab + 1);
        }
        lines.push_back(std::move(record));
    }
    return lines;
}

// A time as such a field has it: Unix seconds.
inline std::optional<std::chrono::sys_seconds> SecondsIn(std::string_view text) {
    std::int64_t seconds = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), seconds);
    // With a year of more than four digits, what is reckoned with it would be nonsense.
    constexpr std::int64_t kYear10000 = 253'402'300'800;
    if (error != std::errc{} || end != text.data() + text.size() || seconds < 0 || seconds >= kYear10000)
        return std::nullopt;
    return std::chrono::sys_seconds{std::chrono::seconds(seconds)};
}
inline std::string SecondsOf(std::chrono::sys_seconds time) {
    return std::to_string(time.time_since_epoch().count());
}

} // namespace host
