// Work on planes of samples: making them of pixels, scaling one, and turning it on the way.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace kit {

// `pixels` are rows of width pixels, blue first, without padding; `planes` gets Y, Cr and Cb as behind the
// header of a frame block. Full range, as in JFIF (ITU-T T.871); a chroma sample is the mean of its four
// pixels.
void ConvertBgrToPlanes(const std::uint8_t* pixels, int width, int height, std::uint8_t* planes) noexcept;

// How the samples of one side of a picture become those of another size. Each new sample is the mean of the
// stretch of old ones that it covers, the outer two of them by the part that is covered; towards a larger
// size it lies between its two neighbours instead, by its distance from each.
//
// Every new sample has the same number of weights, 0 where fewer would do: so the loops over them have a
// fixed length. The weights of a sample are whole numbers with the sum 256. They fit into a byte each but for
// a single one of 256, hence 16 bits.
struct ScaleAxis {
    void Set(int from, int to); // at least 1 each

    int from = 0;
    int to = 0;
    int taps = 0;                       // weights of each new sample
    std::vector<int> first;             // to: the old sample of the first weight; first + taps <= from
    std::vector<std::uint16_t> weights; // to * taps
};

// The turn comes with the writing: the sample of column x and row y goes to to[x*stepX + y*stepY].
struct PlaneTarget {
    std::uint8_t* to = nullptr;
    std::ptrdiff_t stepX = 1;
    std::ptrdiff_t stepY = 0;
};

// Keeps its tables and its row from picture to picture: as long as the sizes stay, nothing is allocated.
class PlaneScaler {
public:
    // Sizes of what Scale reads and, before the turn, of what it writes; at least 1 each.
    void SetSizes(int fromWidth, int fromHeight, int toWidth, int toHeight);
    void Scale(const std::uint8_t* from, std::ptrdiff_t stride, const PlaneTarget& target) noexcept;

private:
    ScaleAxis m_columns;
    ScaleAxis m_rows;
    std::vector<std::uint16_t> m_sums; // a row of the source's width
};

} // namespace kit
