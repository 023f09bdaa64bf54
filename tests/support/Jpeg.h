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

// A gradient, and bright squares whose place depends on `phase`, so that consecutive pictures differ.
inline std::string MakeJpeg(int width, int height, bool colour = true, int phase = 0,
                            int subsampling = TJSAMP_420) {
    std::vector<std::uint8_t> pixels(static_cast<std::size_t>(width) * static_cast<std::size_t>(height) * 3);
    for (int y = 0; y < height; ++y) {
        for (int x = 0; x < width; ++x) {
            auto* const p = &pixels[(static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                                     static_cast<std::size_t>(x)) *
                                    3];
            const bool square = (x / 8 + y / 8 + phase) % 4 == 0;
            p[0] = static_cast<std::uint8_t>(square ? 230 : x * 255 / width);
            p[1] = static_cast<std::uint8_t>(square ? 220 : y * 255 / height);
            p[2] = static_cast<std::uint8_t>(colour ? (x + y) & 0xFF : p[0]);
        }
    }
    const std::unique_ptr<void, int (*)(tjhandle)> encoder(tjInitCompress(), &tjDestroy);
    unsigned char* bytes = nullptr;
    unsigned long size = 0;
    if (tjCompress2(encoder.get(), pixels.data(), width, 0, height, TJPF_RGB, &bytes, &size,
                    colour ? subsampling : TJSAMP_GRAY, 80, 0) != 0)
        throw std::runtime_error(tjGetErrorStr2(encoder.get()));
    std::string jpeg(reinterpret_cast<char*>(bytes), size);
    tjFree(bytes);
    return jpeg;
}

struct DecodedJpeg {
    int width = 0, height = 0; // 0 when the decoder finds a fault
    std::vector<unsigned char> rgb;

    [[nodiscard]] const unsigned char* At(int x, int y) const {
        return &rgb[3 * (static_cast<std::size_t>(y) * static_cast<std::size_t>(width) +
                         static_cast<std::size_t>(x))];
    }
};
// With the other program's decoder.
inline DecodedJpeg DecodeJpeg(std::string_view jpeg) {
    const auto* bytes = reinterpret_cast<const unsigned char*>(jpeg.data());
    const std::unique_ptr<void, int (*)(tjhandle)> decoder(tjInitDecompress(), &tjDestroy);
    int width = 0, height = 0, subsampling = 0, space = 0;
    tjDecompressHeader3(decoder.get(), bytes, jpeg.size(), &width, &height, &subsampling, &space);
    std::vector<unsigned char> rgb(3 * static_cast<std::size_t>(width) * static_cast<std::size_t>(height));
    if (tjDecompress2(decoder.get(), bytes, jpeg.size(), rgb.data(), width, 0, height, TJPF_RGB,
                      TJFLAG_STOPONWARNING) != 0)
        return {};
    return {width, height, std::move(rgb)};
}

} // namespace support
