// The variant for processors with SSE2.

#define KERNEL_TARGET kernels_sse2
#define KERNEL_SET "SSE2"
#define KERNEL_OPTIONS "sse2"

#include "image/kernels/targets/Variant.inl"
