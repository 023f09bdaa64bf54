// Pictures: decoded ones with the files that they are written to, and those that are to be encoded.
#pragma once

#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <utility>
#include <variant>

#include "image/FrameBlock.h"
#include "image/ImageCodec.h"
#include "tools/jpeg/files.h"

namespace jpegtool {

// The frame block of a picture: its planes without padding, chroma of (w/2) x (h/2).
class Picture {
public:
    // For an owner that holds a block with its header.
    explicit Picture(FrameBlock block) : m_block(std::move(block)) {}
    // An empty block of the picture's size, whose planes the caller fills. Throws std::bad_alloc.
    Picture(ImageKind kind, std::int32_t width, std::int32_t height);

    std::int32_t Width() const { return m_block.Header().biWidth; }
    std::int32_t Height() const { return m_block.Header().biHeight; }
    bool IsGrey() const { return m_block.Header().biPlanes == 1; }
    std::int32_t ChromaWidth() const { return Width() / 2; }
    std::int32_t ChromaHeight() const { return Height() / 2; }

    std::uint8_t* Y() { return m_block.Planes(); }
    const std::uint8_t* Y() const { return m_block.Planes(); }
    // Only for a picture in colour.
    std::uint8_t* Cr() { return Y() + Pixels(); }
    const std::uint8_t* Cr() const { return Y() + Pixels(); }
    std::uint8_t* Cb() { return Cr() + Pixels() / 4; }
    const std::uint8_t* Cb() const { return Cr() + Pixels() / 4; }

private:
    std::int64_t Pixels() const { return std::int64_t{Width()} * Height(); }

    FrameBlock m_block;
};

enum class PictureFormat { Pgm, Ppm, Yuv };

// By the end of the name. Throws UsageError for any other.
PictureFormat FormatOfName(const std::string& path);

// Throws FileError.
void WritePicture(const std::string& path, PictureFormat format, const Picture& picture);
// A picture that is to be encoded.
struct Source {
    PictureFormat format = PictureFormat::Pgm;
    std::int32_t width = 0;
    std::int32_t height = 0;
    Bytes samples; // rows without padding: grey, red-green-blue, or the planes Y, Cb, Cr
};

using Size = std::pair<std::int32_t, std::int32_t>;

// The binary forms of Netpbm (P5, P6) with 255 as the greatest value, and .yuv of a size that the caller
// knows. The file's whole length is checked against its size. Throws UsageError where a size is missing or
// too many, FileError for a file that holds no such picture or one beyond the codec's limits.
Source ReadSource(const std::string& path, std::optional<Size> size);

// The content of a .pgm or .ppm file; `name` is for the line that refuses it. Takes bytes of any content.
Source ParseNetpbm(const std::string& name, PictureFormat format, const Bytes& file);

// --- The engines behind the codec, one by one, and in words why they take a stream or do not ---

using Stream = std::span<const std::uint8_t>; // at most kLargestFile bytes

enum class Engine { Facade, Primary, Fallback };

// Starts the kernels at this level, or with an empty name at the best one. Throws UsageError for one that the
// processor lacks and for what is none.
void StartKernels(const std::string& level);
// For example "kernel level 4 (AVX2), best level 4 (AVX2)".
std::string LevelText();

// Which engine decodes a stream in the system.
struct Verdict {
    std::string engine; // "primary", "fallback" or "none"
    std::string reason;
};
Verdict ChooseEngine(Stream stream);

// The picture, or in words why there is none. Throws std::bad_alloc.
std::variant<Picture, std::string> Decode(Stream stream, Engine engine);

} // namespace jpegtool
