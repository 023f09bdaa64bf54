#include "image/kernels/ProgressiveRun.h"
#include "image/kernels/ZigZag.h"

std::uint64_t ippProgressiveMask(const std::int16_t* pBlock) noexcept {
    std::uint64_t nMask = 0;
    for (int k = 0; k < 64; ++k)
        nMask |= std::uint64_t{pBlock[g_aZigZag[k]] != 0} << k;
    return nMask;
}
