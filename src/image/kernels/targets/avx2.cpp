// The variant for processors with AVX2 and both sets of bit manipulation: two blocks to a vector.

#include "image/kernels/targets/Common.h"

#if defined(__x86_64__)

#include <immintrin.h>

#define KERNEL_TARGET kernels_avx2
#define KERNEL_SET "AVX2"
#define KERNEL_SSSE3 1
#define KERNEL_WIDE 1
#ifdef __clang__
#pragma clang attribute push(__attribute__((target("avx2,bmi,bmi2,lzcnt,popcnt,movbe"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("avx2,bmi,bmi2,lzcnt,popcnt,movbe")
#endif

#include "image/kernels/targets/SseVector.inl"
#include "image/kernels/targets/WideVector.inl"

#include "image/kernels/targets/Bodies.inl"

#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif
