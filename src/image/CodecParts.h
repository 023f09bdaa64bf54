// What the facade's functions are made of, besides the engines of jpegdec/ and jpegenc/. Arguments and
// results are those of the facade's functions of like name (ImageCodec.h).
#pragma once

#include "image/ImageCodec.h"

#include <cstdint>

// --- The second engine (FallbackEngine.cpp) ---
//
// Asked for the streams that the primary decoder turns down while it reads the header (RGB with an Adobe
// marker, one scan a component, an unknown colour model). Such a stream costs a decode of whole pixels, and
// into YV12 a temporary picture of three bytes a pixel besides.

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

// --- A copy of the picture of a stream without the rest (StripJpeg.cpp) ---
//
// What the facade's StripJpeg does once the primary decoder has taken the header.

// The stream's size, which always has room for the copy but for a start-of-image marker that it may lack.
inline constexpr std::int32_t kStripJpegExtra = 2;

// Writes at most nJpegSize + kStripJpegExtra bytes, and *pnOutSize on success alone. False for a stream that
// another decoder could take for another picture, or for none, than the one here does.
[[nodiscard]] bool CopyPictureSegments(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pOut,
                                       std::int32_t* pnOutSize);

// --- A picture from afar (CellMeans.cpp) ---

// MeanOfCells, once the kernels are started.
[[nodiscard]] std::int32_t CellMeans(const std::uint8_t* pY, std::int32_t nWidth, std::int32_t nHeight,
                                     std::int32_t nYStep, std::int32_t nColumns, std::int32_t nRows,
                                     std::uint16_t* pMeans) noexcept;
