// How large a picture may be for any engine of the codec.
#pragma once

#include <cstdint>

// Checked once an engine, in the frame header: width and height come from hostile bytes and everything below
// allocates by them. 65500 a side is what other codecs of this format take. 64 megapixels are more than any
// phone's or camera's sensor sends, and keep even three bytes a pixel (192 MiB) inside 32-bit sizes.
inline constexpr std::int32_t kJpegMaxSide = 65500;
inline constexpr std::int64_t kJpegMaxPixels = std::int64_t{1} << 26;

// Neither side is zero, and both together keep the limits. Any values may be asked about.
constexpr bool IsPictureSizeAllowed(std::int32_t nWidth, std::int32_t nHeight) {
    return nWidth >= 1 && nHeight >= 1 && nWidth <= kJpegMaxSide && nHeight <= kJpegMaxSide &&
           std::int64_t{nWidth} * nHeight <= kJpegMaxPixels;
}
