// Which parts of a camera's picture do not count: for motion, a street or a tree behind the yard.
#pragma once

#include <bitset>
#include <cstddef>
#include <optional>
#include <string>
#include <string_view>

namespace host {

// A grid of cells over the whole picture, whatever its size.
class CellMask {
public:
    static constexpr int kColumns = 40;
    static constexpr int kRows = 30;
    // A hexadecimal digit for four cells, row by row from the upper left corner; the digit's highest bit is
    // its leftmost cell.
    static constexpr std::size_t kDigits = std::size_t{kColumns} * kRows / 4;

    // The empty text masks nothing. Nothing for any other text that has not kDigits digits.
    static std::optional<CellMask> FromText(std::string_view text);
    // Empty when nothing is masked.
    [[nodiscard]] std::string Text() const;

    [[nodiscard]] bool IsEmpty() const noexcept { return m_cells.none(); }
    // column < kColumns, row < kRows.
    [[nodiscard]] bool Masks(int column, int row) const noexcept { return m_cells[IndexOf(column, row)]; }
    void Set(int column, int row, bool masked = true) noexcept { m_cells[IndexOf(column, row)] = masked; }

    friend bool operator==(const CellMask&, const CellMask&) = default;

private:
    static constexpr std::size_t IndexOf(int column, int row) noexcept {
        return static_cast<std::size_t>(row) * kColumns + static_cast<std::size_t>(column);
    }

    std::bitset<std::size_t{kColumns} * kRows> m_cells;
};

} // namespace host
