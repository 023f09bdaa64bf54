// Planes of a picture into JPEG, through the codec.
#pragma once

#include <cstdint>
#include <string_view>
#include <vector>

namespace host {

// What a frame block's header says of its planes.
struct PlaneLayout {
    int width = 0;
    int height = 0;
    bool grey = true;
    friend bool operator==(const PlaneLayout&, const PlaneLayout&) = default;
};

// A picture's planes, as they follow the header of a frame block: Y with width*height samples, then, unless
// it is grey, Cr and Cb with (width/2)*(height/2) samples each and width*height/4 bytes for each; all rounded
// down. For an odd size the missing last column or row of chroma repeats its neighbour.
//
// Encodes with a quality of 1 to 100. The stream stands in `buffer`, which grows when it must and is kept by
// the caller for the next picture; empty when the encoder refuses.
std::string_view EncodePlanes(const std::uint8_t* planes, const PlaneLayout& layout, int quality,
                              std::vector<std::uint8_t>& buffer);

} // namespace host
