// Pixels of three bytes into planes.
#pragma once

#include <cstdint>

namespace host {

// `pixels` are rows of width pixels, blue first, without padding; `planes` gets Y, Cr and Cb as behind the
// header of a frame block. Full range, as in JFIF (ITU-T T.871); a chroma sample is the mean of its four
// pixels.
void ConvertBgrToPlanes(const std::uint8_t* pixels, int width, int height, std::uint8_t* planes) noexcept;

} // namespace host
