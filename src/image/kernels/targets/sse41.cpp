// The variant for processors with SSE4.1.

#define KERNEL_TARGET kernels_sse41
#define KERNEL_SET "SSE4.1"
#define KERNEL_OPTIONS "sse4.1"
#define KERNEL_SSSE3 1

#include "image/kernels/targets/Variant.inl"
