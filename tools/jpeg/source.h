// Pictures that are to be encoded.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <utility>

#include "tools/jpeg/files.h"
#include "tools/jpeg/picture.h"

namespace jpegtool {

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

} // namespace jpegtool
