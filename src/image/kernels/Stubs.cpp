// The public names: for each kernel a table of pointers, one a level and three for the highest, and the stub
// that jumps through it. Its arguments are those that the family's header declares.
//
// A new target is its file in targets/, a namespace below, and the level that names it.

#include "image/kernels/Kernels.h"

#include <cstddef>
#include <tuple>

#define KERNEL(name, count) decltype(::name) name;
namespace kernels_portable {
EVERY_KERNEL(KERNEL)
}
#if defined(__x86_64__)
namespace kernels_sse2 {
EVERY_KERNEL(KERNEL)
}
namespace kernels_ssse3 {
EVERY_KERNEL(KERNEL)
}
namespace kernels_sse41 {
EVERY_KERNEL(KERNEL)
}
namespace kernels_avx {
EVERY_KERNEL(KERNEL)
}
namespace kernels_avx2 {
EVERY_KERNEL(KERNEL)
}
namespace kernels_avx512 {
EVERY_KERNEL(KERNEL)
}
#endif
#undef KERNEL

namespace {

// The variant of each level, and those of level 4 on processors with wide registers for whole numbers.
#if defined(__x86_64__)
namespace level0 = kernels_portable;
namespace level1 = kernels_sse2;
namespace level2 = kernels_ssse3;
namespace level3 = kernels_sse41;
namespace level4 = kernels_avx;
namespace level4Wide = kernels_avx2;
namespace level4Widest = kernels_avx512;
#else
namespace level0 = kernels_portable;
namespace level1 = kernels_portable;
namespace level2 = kernels_portable;
namespace level3 = kernels_portable;
namespace level4 = kernels_portable;
namespace level4Wide = kernels_portable;
namespace level4Widest = kernels_portable;
#endif

// Read once a call, so that one call runs in one variant.
std::int32_t Variant() noexcept {
    const std::int32_t nLevel = g_nKernelLevel.load(std::memory_order_relaxed);
    return nLevel == 4 ? 4 + g_nKernelWide.load(std::memory_order_relaxed) : nLevel;
}

template <class Function>
struct Signature;
template <class... Arguments>
struct Signature<IppStatus(Arguments...)> {
    template <std::size_t n>
    using Argument = std::tuple_element_t<n, std::tuple<Arguments...>>;
};

} // namespace

#define PARAMETER(name, n) Signature<decltype(::name)>::Argument<n> a##n
#define PARAMETERS_1(name) PARAMETER(name, 0)
#define PARAMETERS_2(name) PARAMETERS_1(name), PARAMETER(name, 1)
#define PARAMETERS_3(name) PARAMETERS_2(name), PARAMETER(name, 2)
#define PARAMETERS_4(name) PARAMETERS_3(name), PARAMETER(name, 3)
#define PARAMETERS_5(name) PARAMETERS_4(name), PARAMETER(name, 4)
#define PARAMETERS_6(name) PARAMETERS_5(name), PARAMETER(name, 5)
#define PARAMETERS_7(name) PARAMETERS_6(name), PARAMETER(name, 6)
#define PARAMETERS_8(name) PARAMETERS_7(name), PARAMETER(name, 7)
#define PARAMETERS_9(name) PARAMETERS_8(name), PARAMETER(name, 8)
#define PARAMETERS_10(name) PARAMETERS_9(name), PARAMETER(name, 9)
#define ARGUMENTS_1 a0
#define ARGUMENTS_2 ARGUMENTS_1, a1
#define ARGUMENTS_3 ARGUMENTS_2, a2
#define ARGUMENTS_4 ARGUMENTS_3, a3
#define ARGUMENTS_5 ARGUMENTS_4, a4
#define ARGUMENTS_6 ARGUMENTS_5, a5
#define ARGUMENTS_7 ARGUMENTS_6, a6
#define ARGUMENTS_8 ARGUMENTS_7, a7
#define ARGUMENTS_9 ARGUMENTS_8, a8
#define ARGUMENTS_10 ARGUMENTS_9, a9

#define KERNEL(name, count)                                                                                  \
    static decltype(&::name) const s_ap_##name[ippLevels + 2] = {                                            \
        &level0::name, &level1::name,     &level2::name,      &level3::name,                                 \
        &level4::name, &level4Wide::name, &level4Widest::name};                                              \
    IppStatus name(PARAMETERS_##count(name)) {                                                               \
        return s_ap_##name[Variant()](ARGUMENTS_##count);                                                    \
    }
EVERY_KERNEL(KERNEL)
#undef KERNEL
