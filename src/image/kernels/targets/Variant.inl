// One variant, in whole, of a target that says what it is: KERNEL_TARGET, its namespace; KERNEL_SET, what it
// is called; KERNEL_OPTIONS, the instruction sets for the compiler; KERNEL_SSSE3 and KERNEL_WIDE where it has
// those vectors. What the region leans on is reached before it opens.

#include "image/kernels/targets/Common.h"

#if defined(__x86_64__)

#include <immintrin.h>

#define KERNEL_PRAGMA(text) _Pragma(#text)
#ifdef __clang__
#define KERNEL_REGION(options)                                                                               \
    KERNEL_PRAGMA(clang attribute push(__attribute__((target(options))), apply_to = function))
#define KERNEL_REGION_END KERNEL_PRAGMA(clang attribute pop)
#else
#define KERNEL_REGION(options) KERNEL_PRAGMA(GCC push_options) KERNEL_PRAGMA(GCC target(options))
#define KERNEL_REGION_END KERNEL_PRAGMA(GCC pop_options)
#endif

KERNEL_REGION(KERNEL_OPTIONS)

#include "image/kernels/targets/SseVector.inl"
#ifdef KERNEL_WIDE
#include "image/kernels/targets/WideVector.inl"
#endif

#include "image/kernels/targets/Bodies.inl"

KERNEL_REGION_END

#endif
