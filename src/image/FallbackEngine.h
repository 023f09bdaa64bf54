// The second engine behind the facade: asked for the streams that the primary decoder turns down while it
// reads the header (RGB with an Adobe marker, one scan a component, an unknown colour model). Such a stream
// costs a decode of whole pixels, and into YV12 a temporary picture of three bytes a pixel besides.
//
// Arguments and results are those of the facade's operations of like name (ImageCodec.h).
#pragma once

#include "image/ImageCodec.h"

// One component is a grey picture, three are a YV12 one; no other count is read.
[[nodiscard]] std::int32_t ProbeJpegFallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                                             std::int32_t& nWidth, std::int32_t& nHeight, ImageKind& eKind);

// Grey streams, and the Y plane of YCbCr ones. RGB streams have no such plane: ImageUnreadable.
[[nodiscard]] std::int32_t DecodeJpegGreyFallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                                                  std::uint8_t* pDst, std::int32_t nDstStep);

// An odd last column or row of the picture is left out of all three planes.
[[nodiscard]] std::int32_t DecodeJpegYV12Fallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                                                  std::uint8_t* pY, std::int32_t nYStep, std::uint8_t* pCr,
                                                  std::int32_t nCrStep, std::uint8_t* pCb,
                                                  std::int32_t nCbStep);
