// A kernel is a plain function with a status result that does the arithmetic of one block, row or plane on
// memory of the caller; it is free of state and re-entrant. Its family has one header, which holds the
// contracts and the list (name, number of arguments), and its text stands once, in bodies/ under the family's
// name, compiled for each target over that target's vectors; what is made once (Memory.h, Tables.h) has one
// variant and no list. A body includes the bodies and headers that it leans on, and no header of the C++
// library: targets/Common.h reaches all headers before a target opens its instruction set.
#pragma once

#include "image/kernels/Batch.h"
#include "image/kernels/Cells.h"
#include "image/kernels/Colour.h"
#include "image/kernels/Decode.h"
#include "image/kernels/Encode.h"
#include "image/kernels/FallbackOutput.h"
#include "image/kernels/Level.h"
#include "image/kernels/Memory.h"
#include "image/kernels/Sampling.h"
#include "image/kernels/Status.h"
#include "image/kernels/Tables.h"
#include "image/kernels/Transform.h"

// Every kernel that has variants.
#define EVERY_KERNEL(KERNEL)                                                                                 \
    KERNEL(ippxVariant, 1)                                                                                   \
    BATCH_KERNELS(KERNEL)                                                                                    \
    CELL_KERNELS(KERNEL)                                                                                     \
    COLOUR_KERNELS(KERNEL)                                                                                   \
    DECODE_KERNELS(KERNEL)                                                                                   \
    ENCODE_KERNELS(KERNEL)                                                                                   \
    FALLBACK_OUTPUT_KERNELS(KERNEL)                                                                          \
    SAMPLING_KERNELS(KERNEL)                                                                                 \
    TRANSFORM_KERNELS(KERNEL)
