// The variant for processors with AVX-512 of the second generation: four blocks to a vector.

#define KERNEL_TARGET kernels_avx512
#define KERNEL_SET "AVX-512"
#define KERNEL_OPTIONS "avx2,bmi,bmi2,lzcnt,popcnt,movbe,avx512f,avx512bw,avx512dq,avx512vl"
#define KERNEL_SSSE3 1
#define KERNEL_WIDE 1
#define KERNEL_FOUR 1

#include "image/kernels/targets/Variant.inl"
