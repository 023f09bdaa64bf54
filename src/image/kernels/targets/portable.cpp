// The variant that runs on every processor: the bodies over vectors of plain arrays.

#include "image/kernels/Kernels.h"
#include "image/kernels/ZigZag.h"

#include <algorithm>
#include <array>
#include <bit>
#include <cstring>
#include <new>

#define KERNEL_TARGET kernels_portable

#define KERNEL(name, parameters, arguments) IppStatus name parameters;
namespace KERNEL_TARGET {
#include "image/kernels/KernelList.inl"
}
#undef KERNEL

#include "image/kernels/targets/PortableVector.inl"

#include "image/kernels/bodies/BitReader.inl"
#include "image/kernels/bodies/Copy.inl"
#include "image/kernels/bodies/Entropy.inl"
#include "image/kernels/bodies/FallbackOutput.inl"
#include "image/kernels/bodies/FrameConversion.inl"
#include "image/kernels/bodies/ProgressiveEntropy.inl"
#include "image/kernels/bodies/Sampling.inl"
#include "image/kernels/bodies/Tables.inl"
#include "image/kernels/bodies/Transform.inl"
#include "image/kernels/bodies/BitWriter.inl"
#include "image/kernels/bodies/ColourToYCbCr.inl"
#include "image/kernels/bodies/EncoderTables.inl"
#include "image/kernels/bodies/EntropyEncode.inl"
#include "image/kernels/bodies/ForwardTransform.inl"
#include "image/kernels/bodies/ScanEncode.inl"
