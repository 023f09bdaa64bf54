// The variant that runs on every processor: the bodies over vectors of plain arrays.

#include "image/kernels/targets/Common.h"

#define KERNEL_TARGET kernels_portable
#define KERNEL_SET "C++"

#include "image/kernels/targets/PortableVector.inl"

#include "image/kernels/targets/Bodies.inl"
