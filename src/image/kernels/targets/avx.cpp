// The variant for processors with AVX alone: vectors of 128 bits in the three-operand form.

#define KERNEL_TARGET kernels_avx
#define KERNEL_SET "AVX"
#define KERNEL_OPTIONS "avx"
#define KERNEL_SSSE3 1

#include "image/kernels/targets/Variant.inl"
