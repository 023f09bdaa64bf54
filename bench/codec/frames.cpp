#include "bench/codec/frames.h"

#include <algorithm>
#include <filesystem>
#include <fstream>
#include <stdexcept>

namespace bench {
namespace {

int RoundUp(int value, int unit) {
    return (value + unit - 1) / unit * unit;
}

Plane MakePlane(int width, int height, int unitWidth, int unitHeight) {
    Plane plane;
    plane.width = width;
    plane.height = height;
    plane.stride = RoundUp(width, unitWidth);
    plane.rows = RoundUp(height, unitHeight);
    plane.samples.resize(static_cast<std::size_t>(plane.stride) * static_cast<std::size_t>(plane.rows));
    return plane;
}

// The average of each h by v samples, rounded.
void Shrink(const Bytes& full, Size size, int h, int v, Plane& plane) {
    for (int y = 0; y < plane.height; ++y) {
        for (int x = 0; x < plane.width; ++x) {
            int sum = 0;
            for (int i = 0; i < h * v; ++i) {
                const int fullX = std::min(x * h + i % h, size.width - 1);
                const int fullY = std::min(y * v + i / h, size.height - 1);
                sum += full[static_cast<std::size_t>(fullY) * static_cast<std::size_t>(size.width) +
                            static_cast<std::size_t>(fullX)];
            }
            plane.Row(y)[x] = static_cast<std::uint8_t>((sum + h * v / 2) / (h * v));
        }
    }
}

void RepeatEdges(Plane& plane) {
    for (int y = 0; y < plane.rows; ++y) {
        std::uint8_t* const row = plane.Row(y);
        if (y >= plane.height)
            std::copy_n(plane.Row(plane.height - 1), plane.stride, row);
        else
            std::fill(row + plane.width, row + plane.stride, row[plane.width - 1]);
    }
}

// The two inner loops of HalveChroma, compiled for the plain processor and for AVX2.
[[gnu::always_inline]] inline void HalveRow444(const std::uint8_t* __restrict upper,
                                               const std::uint8_t* __restrict lower,
                                               std::uint8_t* __restrict half, int width) {
    for (int x = 0; x < width; ++x)
        half[x] = static_cast<std::uint8_t>(
            (upper[2 * x] + upper[2 * x + 1] + lower[2 * x] + lower[2 * x + 1] + 3) >> 2);
}

// From samples 1 to width-2, which have a neighbour at each side.
[[gnu::always_inline]] inline void HalveRow422(const std::uint8_t* __restrict upper,
                                               const std::uint8_t* __restrict lower,
                                               std::uint8_t* __restrict half, int width) {
    for (int x = 1; x < width - 1; ++x) {
        const int a = (3 * upper[x] + upper[x - 1] + 1) >> 2;
        const int b = (3 * upper[x] + upper[x + 1] + 2) >> 2;
        const int c = (3 * lower[x] + lower[x - 1] + 1) >> 2;
        const int d = (3 * lower[x] + lower[x + 1] + 2) >> 2;
        half[x] = static_cast<std::uint8_t>((a + b + c + d + 3) >> 2);
    }
}

using RowFunction = void (*)(const std::uint8_t*, const std::uint8_t*, std::uint8_t*, int);

void Row444(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* half, int width) {
    HalveRow444(upper, lower, half, width);
}
void Row422(const std::uint8_t* upper, const std::uint8_t* lower, std::uint8_t* half, int width) {
    HalveRow422(upper, lower, half, width);
}
[[gnu::target("avx2")]] void Row444Avx2(const std::uint8_t* upper, const std::uint8_t* lower,
                                        std::uint8_t* half, int width) {
    HalveRow444(upper, lower, half, width);
}
[[gnu::target("avx2")]] void Row422Avx2(const std::uint8_t* upper, const std::uint8_t* lower,
                                        std::uint8_t* half, int width) {
    HalveRow422(upper, lower, half, width);
}

std::uint8_t EdgeOf422(const std::uint8_t* upper, const std::uint8_t* lower, int x, int width) {
    const int left = std::max(x - 1, 0), right = std::min(x + 1, width - 1);
    const int sum = ((3 * upper[x] + upper[left] + 1) >> 2) + ((3 * upper[x] + upper[right] + 2) >> 2) +
                    ((3 * lower[x] + lower[left] + 1) >> 2) + ((3 * lower[x] + lower[right] + 2) >> 2);
    return static_cast<std::uint8_t>((sum + 3) >> 2);
}

} // namespace

Planes::Planes(Size size, Sampling chosen) : sampling(chosen) {
    const int h = HorizontalFactor(sampling), v = VerticalFactor(sampling);
    planes.push_back(MakePlane(size.width, size.height, 8 * h, 8 * v));
    for (int c = 1; c < Components(sampling); ++c)
        planes.push_back(MakePlane((size.width + h - 1) / h, (size.height + v - 1) / v, 8, 8));
}

FrameFile::FrameFile(const std::string& folder, Size size)
    : m_path(folder + "/" + std::to_string(size.width) + "x" + std::to_string(size.height) + ".yuv444"),
      m_size(size) {
    std::error_code error;
    const std::uintmax_t bytes = std::filesystem::file_size(m_path, error);
    const auto frame = static_cast<std::uintmax_t>(size.width) * static_cast<std::uintmax_t>(size.height) * 3;
    if (error || bytes == 0 || bytes % frame != 0)
        throw std::runtime_error(m_path + " holds no pictures; bench/compare makes them");
    m_count = bytes / frame;
}

Planes FrameFile::Read(std::size_t index, Sampling sampling) const {
    const auto pixels = static_cast<std::size_t>(m_size.width) * static_cast<std::size_t>(m_size.height);
    std::ifstream file(m_path, std::ios::binary);
    file.seekg(static_cast<std::streamoff>(index * pixels * 3));
    Planes frame(m_size, sampling);
    Bytes full(pixels);
    for (std::size_t c = 0; c < frame.planes.size(); ++c) {
        if (!file.read(reinterpret_cast<char*>(full.data()), static_cast<std::streamsize>(pixels)))
            throw std::runtime_error("cannot read " + m_path);
        const bool luma = c == 0;
        Shrink(full, m_size, luma ? 1 : HorizontalFactor(sampling), luma ? 1 : VerticalFactor(sampling),
               frame.planes[c]);
        RepeatEdges(frame.planes[c]);
    }
    return frame;
}

void HalveChroma(const Plane& coded, Sampling sampling, Plane& half) {
    const bool wide = __builtin_cpu_supports("avx2");
    const RowFunction row =
        sampling == Sampling::S444 ? (wide ? Row444Avx2 : Row444) : (wide ? Row422Avx2 : Row422);
    for (int y = 0; y < half.height; ++y) {
        const std::uint8_t* const upper = coded.Row(2 * y);
        const std::uint8_t* const lower = coded.Row(2 * y + 1);
        row(upper, lower, half.Row(y), half.width);
        if (sampling == Sampling::S422) {
            // The coded row goes on to whole blocks, and so does the filter.
            half.Row(y)[0] = EdgeOf422(upper, lower, 0, coded.stride);
            half.Row(y)[half.width - 1] = EdgeOf422(upper, lower, half.width - 1, coded.stride);
        }
    }
}

} // namespace bench
