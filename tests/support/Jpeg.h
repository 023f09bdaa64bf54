// JPEG pictures made by another program.
#pragma once

#include <turbojpeg.h>

#include <cstdint>
#include <memory>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

namespace support {

// Of an RGB picture without padding.
inline std::string EncodeJpeg(const std::vector<std::uint8_t>& pixels, int width, int height,
                              int subsampling = TJSAMP_420) {
    const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), &tjDestroy);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    if (tjCompress2(encoder.get(), pixels.data(), width, 0, height, TJPF_RGB, &bytes, &size, subsampling, 80,
                    0) != 0)
        throw std::runtime_error(tjGetErrorStr2(encoder.get()));
    std::string jpeg(reinterpret_cast<char*>(bytes), size);
    tjFree(bytes);
    return jpeg;
}

// A gradient, and bright squares whose place depends on `phase`, so that consecutive pictures differ.
inline std::string MakeJpeg(int width, int height, bool colour = true, int phase = 0,
                            int subsampling = TJSAMP_420) {
    std::vector<std::uint8_t> pixels;
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            const bool square = (x / 8 + y / 8 + phase) % 4 == 0;
            const int red = square ? 230 : x * 255 / width;
            for (const int value : {red, square ? 220 : y * 255 / height, colour ? (x + y) & 0xFF : red})
                pixels.push_back(static_cast<std::uint8_t>(value));
        }
    }
    return EncodeJpeg(pixels, width, height, colour ? subsampling : TJSAMP_GRAY);
}

// All red, and what its samples are in YV12.
inline constexpr int kRedY = 76, kRedCr = 255, kRedCb = 85;
inline std::string RedJpeg(int width, int height) {
    std::vector<std::uint8_t> pixels(width * height * 3);
    for (std::size_t i = 0; i < pixels.size(); i += 3)
        pixels[i] = 255;
    return EncodeJpeg(pixels, width, height);
}

struct DecodedJpeg {
    int width = 0, height = 0; // 0 when the decoder finds a fault
    std::vector<unsigned char> rgb;

    [[nodiscard]] const unsigned char* At(int x, int y) const { return &rgb[3 * (y * width + x)]; }
};
// With the other program's decoder.
inline DecodedJpeg DecodeJpeg(std::string_view jpeg) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    const std::unique_ptr<void, int (*)(tjhandle)> decoder(tjInitDecompress(), &tjDestroy);
    int width = 0, height = 0, subsampling = 0, space = 0;
    tjDecompressHeader3(decoder.get(), bytes, jpeg.size(), &width, &height, &subsampling, &space);
    std::vector<unsigned char> rgb(3 * width * height);
    if (tjDecompress2(decoder.get(), bytes, jpeg.size(), rgb.data(), width, 0, height, TJPF_RGB,
                      TJFLAG_STOPONWARNING) != 0)
        return {};
    return {width, height, std::move(rgb)};
}

} // namespace support
