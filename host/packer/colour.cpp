#include "host/packer/colour.h"

#include <algorithm>
#include <cstddef>

namespace host {
namespace {

// ITU-T T.871, 7, in 1/65536.
std::uint8_t Luma(int b, int g, int r) {
    return static_cast<std::uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
}

// Of sums over four pixels.
std::uint8_t Chroma(int positive, int half, int rest, int weightHalf, int weightRest) {
    const int value = (32768 * positive - weightHalf * half - weightRest * rest) / 4 + (128 << 16) + 32768;
    return static_cast<std::uint8_t>(std::clamp(value >> 16, 0, 255));
}

} // namespace

void ConvertBgrToPlanes(const std::uint8_t* pixels, int width, int height, std::uint8_t* planes) noexcept {
    const std::ptrdiff_t area = std::ptrdiff_t{width} * height;
    for (std::ptrdiff_t i = 0; i < area; ++i)
        planes[i] = Luma(pixels[3 * i], pixels[3 * i + 1], pixels[3 * i + 2]);
    std::uint8_t* cr = planes + area;
    std::uint8_t* cb = cr + area / 4;
    const std::ptrdiff_t stride = std::ptrdiff_t{3} * width;
    for (int y = 0; y < height / 2; ++y) {
        const std::uint8_t* upper = pixels + 2 * y * stride;
        for (int x = 0; x < width / 2; ++x, upper += 6) {
            const std::uint8_t* lower = upper + stride;
            const auto sum = [&](int at) { return upper[at] + upper[at + 3] + lower[at] + lower[at + 3]; };
            const int b = sum(0);
            const int g = sum(1);
            const int r = sum(2);
            *cr++ = Chroma(r, g, b, 27439, 5329);
            *cb++ = Chroma(b, g, r, 21709, 11059);
        }
    }
}

} // namespace host
