// The variant for processors with SSE4.1.

#include "image/kernels/targets/Common.h"

#if defined(__x86_64__)

#include <immintrin.h>

#define KERNEL_TARGET kernels_sse41
#define KERNEL_SET "SSE4.1"
#define KERNEL_SSSE3 1

#ifdef __clang__
#pragma clang attribute push(__attribute__((target("sse4.1"))), apply_to = function)
#else
#pragma GCC push_options
#pragma GCC target("sse4.1")
#endif

#include "image/kernels/targets/SseVector.inl"

#include "image/kernels/targets/Bodies.inl"

#ifdef __clang__
#pragma clang attribute pop
#else
#pragma GCC pop_options
#endif

#endif
