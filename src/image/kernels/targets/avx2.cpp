// The variant for processors with AVX2 and both sets of bit manipulation: two blocks to a vector.

#define KERNEL_TARGET kernels_avx2
#define KERNEL_SET "AVX2"
#define KERNEL_OPTIONS "avx2,bmi,bmi2,lzcnt,popcnt,movbe"
#define KERNEL_SSSE3 1
#define KERNEL_WIDE 1

#include "image/kernels/targets/Variant.inl"
