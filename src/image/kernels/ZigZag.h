// The zigzag sequence (T.81 Figure A.6): natural position of each coefficient in coding order.
#pragma once

#include <cstdint>

// Behind the 64 positions stand 8 entries of 63, so that a run that passes the end of a block stays inside
// it, and then, up to the farthest place that a run can reach, entries that are no position at all.
inline constexpr std::uint8_t g_aZigZag[80] = {
    0,  1,  8,  16, 9,  2,  3,  10, 17, 24, 32, 25, 18, 11, 4,  5,  12, 19, 26, 33,
    40, 48, 41, 34, 27, 20, 13, 6,  7,  14, 21, 28, 35, 42, 49, 56, 57, 50, 43, 36,
    29, 22, 15, 23, 30, 37, 44, 51, 58, 59, 52, 45, 38, 31, 39, 46, 53, 60, 61, 54,
    47, 55, 62, 63, 63, 63, 63, 63, 63, 63, 63, 63, 64, 64, 64, 64, 64, 64, 64, 64};
