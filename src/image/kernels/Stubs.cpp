// The public names: for each kernel a table of five pointers, one a level, and the stub that jumps through
// it.
//
// A new target is its file in targets/, a namespace below, and the level that names it.

#include "image/kernels/Kernels.h"

#define KERNEL(name, parameters, arguments) IppStatus name parameters;
namespace kernels_portable {
#include "image/kernels/KernelList.inl"
}
#undef KERNEL

namespace {

// The variant of each level; several levels may share one.
namespace level0 = kernels_portable;
namespace level1 = kernels_portable;
namespace level2 = kernels_portable;
namespace level3 = kernels_portable;
namespace level4 = kernels_portable;

// Read once a call, so that one call runs in one variant.
std::int32_t Level() noexcept {
    return g_nKernelLevel.load(std::memory_order_relaxed);
}

} // namespace

#define KERNEL(name, parameters, arguments)                                                                  \
    static decltype(&::name) const s_ap_##name[ippLevels] = {&level0::name, &level1::name, &level2::name,    \
                                                             &level3::name, &level4::name};                  \
    IppStatus name parameters {                                                                              \
        return s_ap_##name[Level()] arguments;                                                               \
    }
#include "image/kernels/KernelList.inl"
#undef KERNEL
