#include "host/preferences/values.h"

#include <charconv>
#include <utility>

namespace host {
namespace {

constexpr std::pair<RecordMode, std::string_view> kRecordModes[] = {
    {RecordMode::Off, "off"}, {RecordMode::Always, "always"}, {RecordMode::OnMotion, "motion"}};

template <class Number>
bool WholeNumber(std::string_view text, Number& value) {
    Number number{};
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    if (error != std::errc{} || end != text.data() + text.size())
        return false;
    value = number;
    return true;
}

} // namespace

std::string TextOfValue(int value) {
    return std::to_string(value);
}

std::string TextOfValue(std::uint64_t value) {
    return std::to_string(value);
}

std::string TextOfValue(bool value) {
    return value ? "yes" : "no";
}

std::string TextOfValue(RecordMode value) {
    for (const auto& [mode, word] : kRecordModes) {
        if (mode == value)
            return std::string(word);
    }
    return {};
}

std::string TextOfValue(const std::string& value) {
    return value;
}

std::string TextOfValue(const WordSet& value) {
    std::string text;
    for (const std::string& word : value)
        text += (text.empty() ? "" : " ") + word;
    return text;
}

std::string TextOfValue(const CellMask& value) {
    return value.Text();
}

bool ValueFromText(std::string_view text, int& value) {
    return WholeNumber(text, value);
}

bool ValueFromText(std::string_view text, std::uint64_t& value) {
    return WholeNumber(text, value);
}

bool ValueFromText(std::string_view text, bool& value) {
    if (text != "yes" && text != "no")
        return false;
    value = text == "yes";
    return true;
}

bool ValueFromText(std::string_view text, RecordMode& value) {
    for (const auto& [mode, word] : kRecordModes) {
        if (word == text) {
            value = mode;
            return true;
        }
    }
    return false;
}

bool ValueFromText(std::string_view text, std::string& value) {
    value = text;
    return true;
}

bool ValueFromText(std::string_view text, WordSet& value) {
    WordSet words;
    while (!text.empty()) {
        const auto end = text.find(' ');
        if (end != 0)
            words.emplace(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    value = std::move(words);
    return true;
}

bool ValueFromText(std::string_view text, CellMask& value) {
    const auto mask = CellMask::FromText(text);
    if (mask)
        value = *mask;
    return mask.has_value();
}

} // namespace host
