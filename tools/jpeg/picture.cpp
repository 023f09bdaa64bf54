#include "tools/jpeg/picture.h"

#include <algorithm>
#include <new>
#include <span>

#include "tools/jpeg/files.h"

namespace jpegtool {
namespace {

constexpr std::uint8_t kNeutralChroma = 128;

std::size_t Area(std::int32_t width, std::int32_t height) {
    return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
}

void WritePgm(const std::string& path, const std::string& size, const Picture& picture) {
    const std::string head = "P5\n" + size;
    WriteFile(path, {reinterpret_cast<const std::uint8_t*>(head.data()), head.size()},
              {picture.Y(), Area(picture.Width(), picture.Height())});
}

void WriteYuv(const std::string& path, const Picture& picture) {
    const std::size_t chroma = Area(picture.ChromaWidth(), picture.ChromaHeight());
    Bytes planes(2 * chroma, kNeutralChroma);
    if (!picture.IsGrey()) {
        std::copy_n(picture.Cb(), chroma, planes.data());
        std::copy_n(picture.Cr(), chroma, planes.data() + chroma);
    }
    WriteFile(path, {picture.Y(), Area(picture.Width(), picture.Height())}, planes);
}

std::uint8_t Clamp(int value) {
    return static_cast<std::uint8_t>(std::clamp(value, 0, 255));
}

// ITU-T T.871 (JFIF) section 7, with 16 fractional bits.
void PutRgb(int y, int cb, int cr, std::uint8_t* rgb) {
    constexpr int kHalf = 1 << 15;
    cb -= 128;
    cr -= 128;
    rgb[0] = Clamp(y + ((91881 * cr + kHalf) >> 16));
    rgb[1] = Clamp(y + ((-22554 * cb - 46802 * cr + kHalf) >> 16));
    rgb[2] = Clamp(y + ((116130 * cb + kHalf) >> 16));
}

void WritePpm(const std::string& path, const std::string& size, const Picture& picture) {
    const std::int32_t width = picture.Width(), height = picture.Height();
    // An odd last column or row takes the chroma beside it; where there is none at all the picture is grey.
    const bool grey = picture.IsGrey() || picture.ChromaWidth() == 0 || picture.ChromaHeight() == 0;
    Bytes rgb(Area(width, height) * 3);
    std::uint8_t* out = rgb.data();
    for (std::int32_t y = 0; y < height; ++y) {
        const std::uint8_t* const luma = picture.Y() + std::int64_t{y} * width;
        const std::int64_t row =
            std::int64_t{std::min(y / 2, std::max(picture.ChromaHeight() - 1, 0))} * picture.ChromaWidth();
        for (std::int32_t x = 0; x < width; ++x, out += 3) {
            const std::int64_t at = row + std::min(x / 2, picture.ChromaWidth() - 1);
            PutRgb(luma[x], grey ? kNeutralChroma : picture.Cb()[at],
                   grey ? kNeutralChroma : picture.Cr()[at], out);
        }
    }
    const std::string head = "P6\n" + size;
    WriteFile(path, {reinterpret_cast<const std::uint8_t*>(head.data()), head.size()}, rgb);
}

} // namespace

Picture::Picture(ImageKind kind, std::int32_t width, std::int32_t height) {
    const FrameLayout layout{kind, width, height};
    m_block = FrameBlock::Allocate(layout.ImageBytes());
    if (!m_block)
        throw std::bad_alloc();
    m_block.SetHeader(layout.Header());
}

PictureFormat FormatOfName(const std::string& path) {
    if (path.ends_with(".pgm"))
        return PictureFormat::Pgm;
    if (path.ends_with(".ppm"))
        return PictureFormat::Ppm;
    if (path.ends_with(".yuv"))
        return PictureFormat::Yuv;
    throw UsageError("\"" + path + "\" ends in none of .pgm, .ppm and .yuv");
}

void WritePicture(const std::string& path, PictureFormat format, const Picture& picture) {
    const std::string size =
        std::to_string(picture.Width()) + " " + std::to_string(picture.Height()) + "\n255\n";
    switch (format) {
    case PictureFormat::Pgm:
        WritePgm(path, size, picture);
        break;
    case PictureFormat::Ppm:
        WritePpm(path, size, picture);
        break;
    case PictureFormat::Yuv:
        WriteYuv(path, picture);
        break;
    }
}

} // namespace jpegtool
