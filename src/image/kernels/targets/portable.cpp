// The variant that runs on every processor: the bodies over vectors of plain arrays.

#define KERNEL_TARGET kernels_portable
#define KERNEL_SET "C++"

#include "image/kernels/targets/Variant.inl"
