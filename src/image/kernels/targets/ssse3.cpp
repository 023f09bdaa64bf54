// The variant for processors with SSSE3.

#define KERNEL_TARGET kernels_ssse3
#define KERNEL_SET "SSSE3"
#define KERNEL_OPTIONS "ssse3"
#define KERNEL_SSSE3 1

#include "image/kernels/targets/Variant.inl"
