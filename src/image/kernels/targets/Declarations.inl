// The kernels of one target.

#define KERNEL(name, parameters, arguments) IppStatus name parameters;
namespace KERNEL_TARGET {
#include "image/kernels/KernelList.inl"
}
#undef KERNEL
