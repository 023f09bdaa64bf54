// Reading what people write: lines, words, numbers, and the errors that name the place.
#pragma once

#include <cstdint>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

namespace rescomp {

// A fault of an input file; the text is one line that begins with the file's name.
class InputError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

struct Line {
    std::string_view text; // without blanks at either end
    std::string place;     // "FILE, line N: "
};

// The lines of a text that are neither empty nor comments, which begin with "#". Throws InputError for bytes
// that are no UTF-8.
std::vector<Line> SplitLines(std::string_view content, const std::string& file);

// The words of a line; takes up to `most` of them, and what is left stands in the last one.
std::vector<std::string_view> SplitWords(std::string_view text, std::size_t most);

// A number of 16 bits that is all of the text.
std::optional<std::uint16_t> ParseNumber(std::string_view text);

// Throws InputError when it cannot be read.
std::string ReadInput(const std::string& path);

} // namespace rescomp
