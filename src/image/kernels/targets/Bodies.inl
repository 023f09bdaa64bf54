// One target: the declarations of its kernels, and the text of each, over its vector type and into the
// namespace KERNEL_TARGET.

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
#include "image/kernels/bodies/Colour.inl"
#include "image/kernels/bodies/Decode.inl"
#include "image/kernels/bodies/DecodeProgressive.inl"
#include "image/kernels/bodies/Encode.inl"
#include "image/kernels/bodies/FallbackOutput.inl"
#include "image/kernels/bodies/Sampling.inl"
#include "image/kernels/bodies/Transform.inl"
