// Reads the time from a picture of the clock, as a person does: by the strokes of its digits.
#pragma once

#include <array>

namespace host::test {

// Thousandths of a second since midnight; -1 when a digit is none. `isLit(x, y)` looks at a place of the
// picture as it is drawn, 320x240.
template <class IsLit>
int ReadClock(IsLit isLit) {
    constexpr std::array<std::array<int, 2>, 7> kStrokes{
        {{15, 3}, {3, 18}, {27, 18}, {15, 33}, {3, 48}, {27, 48}, {15, 63}}};
    constexpr std::array<unsigned, 10> kDigits{0x77, 0x24, 0x5D, 0x6D, 0x2E, 0x6B, 0x7B, 0x25, 0x7F, 0x6F};
    constexpr std::array<std::array<int, 2>, 9> kPlaces{
        {{36, 36}, {74, 36}, {126, 36}, {164, 36}, {216, 36}, {254, 36}, {107, 122}, {145, 122}, {183, 122}}};
    constexpr std::array<int, 9> kWorth{36000000, 3600000, 600000, 60000, 10000, 1000, 100, 10, 1};
    int time = 0;
    for (std::size_t place = 0; place < kPlaces.size(); ++place) {
        unsigned lit = 0;
        for (std::size_t stroke = 0; stroke < kStrokes.size(); ++stroke) {
            if (isLit(kPlaces[place][0] + kStrokes[stroke][0], kPlaces[place][1] + kStrokes[stroke][1]))
                lit |= 1U << stroke;
        }
        std::size_t digit = 0;
        while (digit < kDigits.size() && kDigits[digit] != lit)
            ++digit;
        if (digit == kDigits.size())
            return -1;
        time += static_cast<int>(digit) * kWorth[place];
    }
    return time;
}

} // namespace host::test
