#include "platform/process.h"

#include <algorithm>

namespace platform {

namespace {

constexpr std::u16string_view kBlanks = u" \t";

std::u16string_view TakeBlanks(std::u16string_view line) noexcept {
    return line.substr(std::min(line.find_first_not_of(kBlanks), line.size()));
}

std::u16string TakeProgram(std::u16string_view& line) {
    const bool isQuoted = line.starts_with(u'"');
    if (isQuoted)
        line.remove_prefix(1);
    const std::size_t end = std::min(isQuoted ? line.find(u'"') : line.find_first_of(kBlanks), line.size());
    std::u16string program(line.substr(0, end));
    line.remove_prefix(std::min(end + 1, line.size()));
    return program;
}

std::u16string TakeArgument(std::u16string_view& line) {
    std::u16string argument;
    bool isQuoted = false;
    while (!line.empty() && (isQuoted || kBlanks.find(line.front()) == std::u16string_view::npos)) {
        const std::size_t backslashes = std::min(line.find_first_not_of(u'\\'), line.size());
        line.remove_prefix(backslashes);
        const bool isQuote = line.starts_with(u'"');
        argument.append(isQuote ? backslashes / 2 : backslashes, u'\\');
        if (!isQuote) {
            if (backslashes == 0) {
                argument += line.front();
                line.remove_prefix(1);
            }
            continue;
        }
        line.remove_prefix(1);
        if (backslashes % 2 != 0) {
            argument += u'"';
        } else if (isQuoted && line.starts_with(u'"')) {
            argument += u'"';
            line.remove_prefix(1);
        } else {
            isQuoted = !isQuoted;
        }
    }
    return argument;
}

} // namespace

std::vector<std::u16string> SplitCommandLine(std::u16string_view line) {
    std::vector<std::u16string> arguments;
    line = TakeBlanks(line);
    if (line.empty())
        return arguments;
    arguments.push_back(TakeProgram(line));
    for (line = TakeBlanks(line); !line.empty(); line = TakeBlanks(line))
        arguments.push_back(TakeArgument(line));
    return arguments;
}

std::u16string QuoteArgument(std::u16string_view text) {
    if (!text.empty() && text.find_first_of(u" \t\"") == std::u16string_view::npos)
        return std::u16string(text);
    std::u16string quoted = u"\"";
    std::size_t backslashes = 0;
    for (const char16_t c : text) {
        if (c == u'"')
            quoted.append(backslashes + 1, u'\\');
        backslashes = c == u'\\' ? backslashes + 1 : 0;
        quoted += c;
    }
    quoted.append(backslashes, u'\\');
    return quoted + u'"';
}

} // namespace platform
