// Saturation to 16 bits, for bodies and vector types alike.
#pragma once

#include <cstdint>

constexpr std::int16_t Saturate16(std::int32_t n) {
    return static_cast<std::int16_t>(n < -32768 ? -32768 : n > 32767 ? 32767 : n);
}
