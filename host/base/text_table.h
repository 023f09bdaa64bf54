// Small text files of the data folder: one record a line, fields separated by tabs, "#" begins a comment
// line.
#pragma once

#include <cstddef>
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

} // namespace host
