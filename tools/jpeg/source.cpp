#include "tools/jpeg/picture.h"

#include <cctype>
#include <charconv>
#include <tuple>

#include "image/format/JpegGeometry.h"

namespace jpegtool {
namespace {

// The words of a Netpbm header: parted by blanks, with comments from # to the end of a line.
class Header {
public:
    explicit Header(const Bytes& file) : m_file(file) {}

    std::string Word() {
        while (m_at < m_file.size() && (IsBlank() || m_file[m_at] == '#')) {
            if (m_file[m_at] == '#') {
                while (m_at < m_file.size() && m_file[m_at] != '\n')
                    ++m_at;
            } else {
                ++m_at;
            }
        }
        std::string word;
        while (m_at < m_file.size() && !IsBlank() && word.size() < 16)
            word += static_cast<char>(m_file[m_at++]);
        return word;
    }
    // -1 for what is no number.
    std::int32_t Number() {
        const std::string word = Word();
        std::int32_t value = -1;
        const auto result = std::from_chars(word.data(), word.data() + word.size(), value);
        return result.ec == std::errc() && result.ptr == word.data() + word.size() ? value : -1;
    }
    // Where the samples begin: one blank behind the last word.
    std::size_t End() const { return m_at + 1; }

private:
    bool IsBlank() const { return std::isspace(m_file[m_at]) != 0; }

    const Bytes& m_file;
    std::size_t m_at = 0;
};

// Bytes of the samples; for sizes within the limits.
std::size_t SampleBytes(const Source& source) {
    const auto area = [](std::int32_t width, std::int32_t height) {
        return static_cast<std::size_t>(width) * static_cast<std::size_t>(height);
    };
    const std::size_t pixels = area(source.width, source.height);
    switch (source.format) {
    case PictureFormat::Pgm:
        return pixels;
    case PictureFormat::Ppm:
        return 3 * pixels;
    case PictureFormat::Yuv:
        break;
    }
    return pixels + 2 * area(source.width / 2, source.height / 2);
}

void CheckSize(const std::string& path, const Source& source) {
    if (!IsPictureSizeAllowed(source.width, source.height))
        throw FileError(path + ": a picture of " + std::to_string(source.width) + "x" +
                        std::to_string(source.height) + " is beyond the limits of the codec");
}

} // namespace

Source ParseNetpbm(const std::string& name, PictureFormat format, const Bytes& file) {
    Source source;
    source.format = format;
    const std::string magic = source.format == PictureFormat::Pgm ? "P5" : "P6";
    Header header(file);
    if (header.Word() != magic)
        throw FileError(name + ": no picture of the binary form " + magic);
    source.width = header.Number();
    source.height = header.Number();
    const std::int32_t most = header.Number();
    if (source.width < 1 || source.height < 1 || most < 1)
        throw FileError(name + ": a bad header");
    if (most != 255)
        throw FileError(name + ": samples up to " + std::to_string(most) + "; only 255 can be encoded");
    CheckSize(name, source);
    const std::size_t bytes = SampleBytes(source);
    if (file.size() < header.End() || file.size() - header.End() < bytes)
        throw FileError(name + ": ends before its last sample");
    const auto begin = file.begin() + static_cast<std::ptrdiff_t>(header.End());
    source.samples.assign(begin, begin + static_cast<std::ptrdiff_t>(bytes));
    return source;
}

Source ReadSource(const std::string& path, std::optional<Size> size) {
    Source source;
    source.format = FormatOfName(path);
    const bool bare = source.format == PictureFormat::Yuv;
    if (bare && !size)
        throw UsageError("a .yuv file needs --size WxH");
    if (!bare && size)
        throw UsageError("--size is for .yuv files; others tell theirs");
    Bytes file = ReadFile(path);
    if (!bare)
        return ParseNetpbm(path, source.format, file);
    std::tie(source.width, source.height) = *size;
    CheckSize(path, source);
    if (file.size() != SampleBytes(source))
        throw FileError(path + ": has " + std::to_string(file.size()) + " bytes; the planes of " +
                        std::to_string(source.width) + "x" + std::to_string(source.height) + " have " +
                        std::to_string(SampleBytes(source)));
    source.samples = std::move(file);
    return source;
}

} // namespace jpegtool
