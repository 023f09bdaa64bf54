// The pictures of a comparison, and their planes at every sampling.
//
// A picture file holds frames of one size back to back, each as the whole planes Y, Cb, Cr (bench/compare
// makes them).
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <vector>

namespace bench {

using Bytes = std::vector<std::uint8_t>;

enum class Sampling { Grey, S420, S422, S444 };

constexpr int Components(Sampling sampling) {
    return sampling == Sampling::Grey ? 1 : 3;
}
// Luma factors; chroma has 1x1.
constexpr int HorizontalFactor(Sampling sampling) {
    return sampling == Sampling::S420 || sampling == Sampling::S422 ? 2 : 1;
}
constexpr int VerticalFactor(Sampling sampling) {
    return sampling == Sampling::S420 ? 2 : 1;
}

struct Size {
    int width = 0;
    int height = 0;
};

// One plane with room for whole MCUs around its picture.
struct Plane {
    int width = 0; // of the picture in it
    int height = 0;
    int stride = 0;
    int rows = 0;
    Bytes samples;

    std::uint8_t* Row(int y) { return samples.data() + static_cast<std::ptrdiff_t>(y) * stride; }
    const std::uint8_t* Row(int y) const { return samples.data() + static_cast<std::ptrdiff_t>(y) * stride; }
};

struct Planes {
    Sampling sampling = Sampling::S420;
    std::vector<Plane> planes; // Y, Cb, Cr, or Y alone

    Planes(Size size, Sampling sampling);
};

// Reads every frame of a picture file, one at a time. Throws std::runtime_error if the file is missing or
// holds no whole number of frames.
class FrameFile {
public:
    FrameFile(const std::string& folder, Size size);

    std::size_t Count() const { return m_count; }
    // Frame number index at a sampling: chroma is averaged, the room around the picture repeats its edges.
    Planes Read(std::size_t index, Sampling sampling) const;

private:
    std::string m_path;
    Size m_size;
    std::size_t m_count = 0;
};

// The step from coded chroma of 4:4:4 or 4:2:2 to half width and half height, with the codec's own
// arithmetic: 4:2:2 is brought to full width by a triangle filter first.
void HalveChroma(const Plane& coded, Sampling sampling, Plane& half);

} // namespace bench
