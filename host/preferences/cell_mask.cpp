#include "host/preferences/cell_mask.h"

namespace host {
namespace {

constexpr std::string_view kHexDigits = "0123456789abcdef";

// -1 for what is no digit.
int HexValueOf(char c) noexcept {
    const char small = c >= 'A' && c <= 'F' ? static_cast<char>(c - 'A' + 'a') : c;
    const auto value = kHexDigits.find(small);
    return value == std::string_view::npos ? -1 : static_cast<int>(value);
}

} // namespace

std::optional<CellMask> CellMask::FromText(std::string_view text) {
    CellMask mask;
    if (text.empty())
        return mask;
    if (text.size() != kDigits)
        return std::nullopt;
    for (std::size_t i = 0; i < kDigits; ++i) {
        const int value = HexValueOf(text[i]);
        if (value < 0)
            return std::nullopt;
        for (std::size_t bit = 0; bit < 4; ++bit)
            mask.m_cells[4 * i + bit] = ((value >> (3 - bit)) & 1) != 0;
    }
    return mask;
}

std::string CellMask::Text() const {
    if (IsEmpty())
        return {};
    std::string text(kDigits, '0');
    for (std::size_t i = 0; i < kDigits; ++i) {
        std::size_t value = 0;
        for (std::size_t bit = 0; bit < 4; ++bit)
            value = 2 * value + (m_cells[4 * i + bit] ? 1 : 0);
        text[i] = kHexDigits[value];
    }
    return text;
}

} // namespace host
