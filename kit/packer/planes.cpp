#include "kit/packer/planes.h"

#include <algorithm>
#include <cmath>

namespace kit {
namespace {

constexpr int kOne = 256; // the sum of a sample's weights

struct Stretch {
    double begin = 0;
    double end = 0;
};

// The stretch of old samples that a new one covers.
Stretch StretchOf(int sample, int from, int to) {
    const double scale = static_cast<double>(from) / to;
    if (from >= to)
        return {sample * scale, (sample + 1) * scale};
    // As wide as one old sample, around the middle of the new one: its parts in the two old samples that it
    // lies over are the weights of the line between them.
    const double middle = std::clamp((sample + 0.5) * scale, 0.5, from - 0.5);
    return {middle - 0.5, middle + 0.5};
}

// ITU-T T.871, 7, in 1/65536.
std::uint8_t Luma(int b, int g, int r) {
    return static_cast<std::uint8_t>((19595 * r + 38470 * g + 7471 * b + 32768) >> 16);
}

// Converts sums over four pixels.
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

void ScaleAxis::Set(int newFrom, int newTo) {
    if (from == newFrom && to == newTo)
        return;
    from = newFrom;
    to = newTo;
    taps = std::min(from, (from >= to ? (from + to - 1) / to : 1) + 1);
    first.assign(static_cast<std::size_t>(to), 0);
    weights.assign(static_cast<std::size_t>(to) * static_cast<std::size_t>(taps), 0);
    for (int sample = 0; sample < to; ++sample) {
        const Stretch stretch = StretchOf(sample, from, to);
        const int start = std::clamp(static_cast<int>(std::floor(stretch.begin)), 0, from - taps);
        first[static_cast<std::size_t>(sample)] = start;
        // Each weight is the growth of a rounded running sum, so that the last sum is exact.
        double covered = 0;
        int given = 0;
        for (int tap = 0; tap < taps; ++tap) {
            const double begin = std::max(stretch.begin, static_cast<double>(start + tap));
            const double end = std::min(stretch.end, static_cast<double>(start + tap + 1));
            covered += std::max(0.0, end - begin);
            const int sum =
                tap == taps - 1
                    ? kOne
                    : std::min(kOne,
                               static_cast<int>(std::lround(covered / (stretch.end - stretch.begin) * kOne)));
            weights[static_cast<std::size_t>(sample) * static_cast<std::size_t>(taps) +
                    static_cast<std::size_t>(tap)] = static_cast<std::uint16_t>(sum - given);
            given = sum;
        }
    }
}

void PlaneScaler::SetSizes(int fromWidth, int fromHeight, int toWidth, int toHeight) {
    m_columns.Set(fromWidth, toWidth);
    m_rows.Set(fromHeight, toHeight);
    m_sums.resize(static_cast<std::size_t>(fromWidth));
}

void PlaneScaler::Scale(const std::uint8_t* from, std::ptrdiff_t stride, const PlaneTarget& target) noexcept {
    const int width = m_columns.from;
    std::uint16_t* const sums = m_sums.data();
    for (int row = 0; row < m_rows.to; ++row) {
        // Down first: whole rows of the source into one row of sums, which stay below 2^16.
        const std::uint16_t* weight =
            &m_rows.weights[static_cast<std::size_t>(row) * static_cast<std::size_t>(m_rows.taps)];
        const std::uint8_t* source = from + m_rows.first[static_cast<std::size_t>(row)] * stride;
        std::fill_n(sums, width, std::uint16_t{kOne / 2});
        for (int tap = 0; tap < m_rows.taps; ++tap, source += stride) {
            const std::uint16_t w = weight[tap];
            if (w == 0)
                continue;
            for (int x = 0; x < width; ++x)
                sums[x] = static_cast<std::uint16_t>(sums[x] + source[x] * w);
        }
        for (int x = 0; x < width; ++x)
            sums[x] = static_cast<std::uint16_t>(sums[x] >> 8);
        // Then across, sample by sample, each to its place in the turned picture.
        std::uint8_t* to = target.to + row * target.stepY;
        weight = m_columns.weights.data();
        const int taps = m_columns.taps;
        for (int column = 0; column < m_columns.to; ++column, to += target.stepX, weight += taps) {
            const std::uint16_t* sample = sums + m_columns.first[static_cast<std::size_t>(column)];
            unsigned sum = kOne / 2;
            for (int tap = 0; tap < taps; ++tap)
                sum += static_cast<unsigned>(sample[tap]) * weight[tap];
            *to = static_cast<std::uint8_t>(sum >> 8);
        }
    }
}

} // namespace kit
