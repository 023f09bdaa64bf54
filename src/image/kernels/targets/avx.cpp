// The variant for processors with AVX alone: vectors of 128 bits in the three-operand form.

#include "image/kernels/targets/Common.h"

#if defined(__x86_64__)

#include <immintrin.h>

#define KERNEL_TARGET kernels_avx
#define KERNEL_SET "AVX"
#define KERNEL_SSSE3 1

#ifdef __clang__
#pragma clang attribute push(__attribute__((target("avx"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx")
#endif

#include "image/kernels/targets/SseVector.inl"

#include "image/kernels/targets/Bodies.inl"

#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif
