// The text of every variant, compiled once a target: over its vector type, into the namespace KERNEL_TARGET.

#include "image/kernels/bodies/BitReader.inl"
#include "image/kernels/bodies/Copy.inl"
#include "image/kernels/bodies/Entropy.inl"
#include "image/kernels/bodies/FallbackOutput.inl"
#include "image/kernels/bodies/FrameConversion.inl"
#include "image/kernels/bodies/ProgressiveEntropy.inl"
#include "image/kernels/bodies/Sampling.inl"
#include "image/kernels/bodies/Tables.inl"
#include "image/kernels/bodies/Transform.inl"
#include "image/kernels/bodies/Variant.inl"

#include "image/kernels/bodies/Interleave.inl"

// Interleaves what it has converted.
#include "image/kernels/bodies/ColourFromYCbCr.inl"

#include "image/kernels/bodies/BitWindow.inl"

// Decode from the window.
#include "image/kernels/bodies/McuRun.inl"
#include "image/kernels/bodies/ProgressiveRun.inl"

#include "image/kernels/bodies/BitWriter.inl"
#include "image/kernels/bodies/ColourToYCbCr.inl"
#include "image/kernels/bodies/EncoderTables.inl"
#include "image/kernels/bodies/EntropyEncode.inl"
#include "image/kernels/bodies/ForwardTransform.inl"
// Its blocks come from the transform above.
#include "image/kernels/bodies/ScanEncode.inl"
#include "image/kernels/bodies/Split.inl"
