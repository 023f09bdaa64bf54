// All kernel families at once: plain functions with a status result that do the arithmetic of one block, row
// or plane on memory of the caller. Free of state and re-entrant. The headers below hold the contracts.
#pragma once

#include "image/kernels/ColourFromYCbCr.h"
#include "image/kernels/ColourToYCbCr.h"
#include "image/kernels/Copy.h"
#include "image/kernels/EncoderTables.h"
#include "image/kernels/Entropy.h"
#include "image/kernels/EntropyEncode.h"
#include "image/kernels/ForwardTransform.h"
#include "image/kernels/FallbackOutput.h"
#include "image/kernels/FrameConversion.h"
#include "image/kernels/Interleave.h"
#include "image/kernels/Level.h"
#include "image/kernels/McuRun.h"
#include "image/kernels/Memory.h"
#include "image/kernels/ProgressiveEntropy.h"
#include "image/kernels/Sampling.h"
#include "image/kernels/ScanEncode.h"
#include "image/kernels/Split.h"
#include "image/kernels/Status.h"
#include "image/kernels/Tables.h"
#include "image/kernels/Transform.h"
