// Arithmetic of sizes and strides that all engines need.
#pragma once

#include <cstdint>

// How many units of `nBy` it takes to cover `n`. Both above 0, and their sum within 32 bits.
constexpr std::int32_t CeilDivide(std::int32_t n, std::int32_t nBy) {
    return (n + nBy - 1) / nBy;
}

// Kernels take strides of 32 bits above zero. Any other is 0 here, which they refuse.
constexpr std::int32_t KernelStep(std::int64_t nStep) {
    return nStep > 0 && nStep <= INT32_MAX ? static_cast<std::int32_t>(nStep) : 0;
}
