// One variant of the kernels, in whole. Compiled once for each instruction set, of which CMakeLists.txt says:
// KERNEL_TARGET, its namespace; KERNEL_SET, what it is called; KERNEL_OPTIONS, what the compiler may use;
// KERNEL_SSSE3, KERNEL_WIDE and KERNEL_FOUR where it has those vectors. One without options is for every
// processor. What a region leans on is reached before it opens.

#include "image/kernels/targets/Common.h"

#if !defined(KERNEL_OPTIONS) || defined(__x86_64__)

#ifdef KERNEL_OPTIONS

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

#else
#define KERNEL_REGION_END
#include "image/kernels/targets/PortableVector.inl"
#endif

// The declarations of the kernels, and the text of each.
#define KERNEL(name, arguments) decltype(::name) name;
namespace KERNEL_TARGET {
EVERY_KERNEL(KERNEL)

IppStatus ippxVariant(const char** pszSet) {
    if (!pszSet)
        return ippStsNullPtrErr;
    *pszSet = KERNEL_SET;
    return ippStsNoErr;
}
} // namespace KERNEL_TARGET
#undef KERNEL

#include "image/kernels/bodies/BatchDecode.inl"
#include "image/kernels/bodies/BatchEncode.inl"
#include "image/kernels/bodies/BatchProgressive.inl"
#include "image/kernels/bodies/Cells.inl"
#include "image/kernels/bodies/Colour.inl"
#include "image/kernels/bodies/Decode.inl"
#include "image/kernels/bodies/DecodeProgressive.inl"
#include "image/kernels/bodies/Encode.inl"
#include "image/kernels/bodies/FallbackOutput.inl"
#include "image/kernels/bodies/Sampling.inl"
#include "image/kernels/bodies/Transform.inl"

KERNEL_REGION_END

#endif
