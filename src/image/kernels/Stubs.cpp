// The public names: for each kernel a table of pointers, one a level and two for the highest, and the stub
// that jumps through it.
//
// A new target is its file in targets/, a namespace below, and the level that names it.

#include "image/kernels/Kernels.h"

#define KERNEL(name, parameters, arguments) IppStatus name parameters;
namespace kernels_portable {
#include "image/kernels/KernelList.inl"
}
#if defined(__x86_64__)
namespace kernels_sse2 {
#include "image/kernels/KernelList.inl"
}
namespace kernels_ssse3 {
#include "image/kernels/KernelList.inl"
}
namespace kernels_sse41 {
#include "image/kernels/KernelList.inl"
}
namespace kernels_avx {
#include "image/kernels/KernelList.inl"
}
namespace kernels_avx2 {
#include "image/kernels/KernelList.inl"
}
#endif
#undef KERNEL

namespace {

// The variant of each level, and that of level 4 on processors with wide registers for whole numbers.
#if defined(__x86_64__)
namespace level0 = kernels_portable;
namespace level1 = kernels_sse2;
namespace level2 = kernels_ssse3;
namespace level3 = kernels_sse41;
namespace level4 = kernels_avx;
namespace level4Wide = kernels_avx2;
#else
namespace level0 = kernels_portable;
namespace level1 = kernels_portable;
namespace level2 = kernels_portable;
namespace level3 = kernels_portable;
namespace level4 = kernels_portable;
namespace level4Wide = kernels_portable;
#endif

// Read once a call, so that one call runs in one variant.
std::int32_t Variant() noexcept {
    const std::int32_t nLevel = g_nKernelLevel.load(std::memory_order_relaxed);
    return nLevel == 4 ? 4 + g_nKernelWide.load(std::memory_order_relaxed) : nLevel;
}

} // namespace

#define KERNEL(name, parameters, arguments)                                                                  \
    static decltype(&::name) const s_ap_##name[ippLevels + 1] = {                                            \
        &level0::name, &level1::name, &level2::name, &level3::name, &level4::name, &level4Wide::name};       \
    IppStatus name parameters {                                                                              \
        return s_ap_##name[Variant()] arguments;                                                             \
    }
#include "image/kernels/KernelList.inl"
#undef KERNEL
