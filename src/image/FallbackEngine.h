// The second engine behind the facade: asked for the streams that the primary decoder turns down while it
// reads the header (RGB with an Adobe marker, one scan a component, an unknown colour model).
//
// The engine is not there yet. Until it is, every operation says what it would say of a stream that it cannot
// read, and writes nothing: such a stream is a lost frame.
#pragma once

#include "image/ImageCodec.h"

[[nodiscard]] std::int32_t ProbeJpegFallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                                             std::int32_t& nWidth, std::int32_t& nHeight, ImageKind& eKind);

[[nodiscard]] std::int32_t DecodeJpegGreyFallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                                                  std::uint8_t* pDst, std::int32_t nDstStep);

[[nodiscard]] std::int32_t DecodeJpegYV12Fallback(const std::uint8_t* pJpeg, std::int32_t nJpegSize,
                                                  std::uint8_t* pY, std::int32_t nYStep, std::uint8_t* pCr,
                                                  std::int32_t nCrStep, std::uint8_t* pCb,
                                                  std::int32_t nCbStep);
