// Copies the picture of a stream and leaves out the rest: what the facade's StripJpeg does once the primary
// decoder has taken the header.
#pragma once

#include <cstdint>

// The stream's size, which always has room for the copy but for a start-of-image marker that it may lack.
inline constexpr std::int32_t kStripJpegExtra = 2;

// Writes at most nJpegSize + kStripJpegExtra bytes, and *pnOutSize on success alone. False for a stream that
// another decoder could take for another picture, or for none, than the one here does.
[[nodiscard]] bool CopyPictureSegments(const std::uint8_t* pJpeg, std::int32_t nJpegSize, std::uint8_t* pOut,
                                       std::int32_t* pnOutSize);
