// The start of the kernels, which every use of the codec begins with.
#pragma once

#include "image/ImageCodec.h"
#include "image/kernels/Level.h"

#include <algorithm>

// Starts the kernels with the first use of the codec; a negative value is what a start-up failure would hand
// back. Their note on the processor's vendor is of no interest here.
inline std::int32_t StartKernels() {
    if (g_nCodecStartState.load(std::memory_order_relaxed) > 0) {
        ippStaticInit();
        g_nCodecStartState.store(ImageOk, std::memory_order_relaxed);
    }
    return std::min(g_nCodecStartState.load(std::memory_order_relaxed), 0);
}
