// The cosine transform by its definition (T.81 A.3.3) in double precision.
#pragma once

#include <array>
#include <cmath>
#include <cstddef>
#include <numbers>

namespace samples {

using ExactBlock = std::array<double, 64>;

// From samples to coefficients, or back; rows first, then columns.
inline ExactBlock ReferenceTransform(const ExactBlock& in, bool bInverse) {
    static const auto aCosines = [] {
        ExactBlock a;
        for (std::size_t i = 0; i < 64; ++i)
            a[i] = (i < 8 ? std::sqrt(0.125) : 0.5) *
                   std::cos(static_cast<double>((2 * (i % 8) + 1) * (i / 8)) * std::numbers::pi / 16);
        return a;
    }();
    ExactBlock rows{}, out{};
    for (std::size_t i = 0; i < 512; ++i) {
        const std::size_t y = i / 64 * 8, nTo = i / 8 % 8, nFrom = i % 8;
        rows[y + nTo] += aCosines[bInverse ? 8 * nFrom + nTo : 8 * nTo + nFrom] * in[y + nFrom];
    }
    for (std::size_t i = 0; i < 512; ++i) {
        const std::size_t x = i / 64, nTo = i / 8 % 8, nFrom = i % 8;
        out[8 * nTo + x] += aCosines[bInverse ? 8 * nFrom + nTo : 8 * nTo + nFrom] * rows[8 * nFrom + x];
    }
    return out;
}

} // namespace samples
