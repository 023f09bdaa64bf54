#include "phone/pictures.h"

#include <algorithm>
#include <cstdint>
#include <fstream>
#include <system_error>

#include "platform/text.h"

namespace phone {
namespace {

// More than a header and a body hold together; longer files are not read to their end.
constexpr std::size_t kReadLimit = 2 * kLargestPart + 1;

std::string ReadFile(const std::filesystem::path& path) {
    std::ifstream stream(path, std::ios::binary);
    std::string bytes(kReadLimit, '\0');
    stream.read(bytes.data(), static_cast<std::streamsize>(bytes.size()));
    if (stream.bad() || (stream.fail() && !stream.eof())) {
        throw PictureError("cannot read " + path.string());
    }
    bytes.resize(static_cast<std::size_t>(stream.gcount()));
    return bytes;
}

bool IsPictureName(const std::filesystem::path& path) {
    const std::string extension = path.extension().string();
    return platform::EqualsIgnoringCase(extension, ".jpg") ||
           platform::EqualsIgnoringCase(extension, ".jpeg");
}

} // namespace

std::optional<PictureSize> JpegSize(std::string_view file) {
    const auto byte = [&](std::size_t at) -> unsigned { return static_cast<std::uint8_t>(file[at]); };
    const auto word = [&](std::size_t at) -> unsigned { return byte(at) << 8U | byte(at + 1); };
    if (!file.starts_with("\xFF\xD8")) {
        return std::nullopt;
    }
    std::size_t at = 2;
    while (at + 4 <= file.size() && byte(at) == 0xFF) {
        const unsigned marker = byte(at + 1);
        if (marker == 0xFF) { // fill byte
            ++at;
            continue;
        }
        // SOF0 to SOF15 without DHT, JPG and DAC, which share the range.
        const bool frame =
            marker >= 0xC0 && marker <= 0xCF && marker != 0xC4 && marker != 0xC8 && marker != 0xCC;
        if (frame) {
            if (at + 9 > file.size()) {
                break;
            }
            return PictureSize{.width = word(at + 7), .height = word(at + 5)};
        }
        if (marker == 0xDA || marker == 0xD9) {
            break;
        }
        at += 2 + word(at + 2);
    }
    return std::nullopt;
}

PictureSequence::PictureSequence(std::vector<std::string> files, const std::vector<std::string>& names,
                                 std::size_t split)
    : m_files(std::move(files)), m_split(split) {
    for (std::size_t i = 0; i < m_files.size(); ++i) {
        const auto size = JpegSize(m_files[i]);
        if (!size) {
            throw PictureError(names[i] + " is no JPEG picture");
        }
        if (i == 0) {
            m_size = *size;
        }
    }
    const std::string_view header = std::string_view(m_files[0]).substr(0, split);
    const bool shared = header.size() == split && std::ranges::all_of(m_files, [&](const std::string& file) {
                            return file.starts_with(header);
                        });
    if (!shared) {
        m_split = 0;
        m_note = "the pictures do not share their first " + std::to_string(split) +
                 " bytes: each is sent whole (as with --split 0)";
    }
    for (std::size_t i = 0; i < m_files.size(); ++i) {
        if (m_files[i].size() - m_split > kLargestPart) {
            throw PictureError(names[i] + " is too large: at most " + std::to_string(kLargestPart) +
                               " bytes can follow its first " + std::to_string(m_split));
        }
    }
}

PictureSequence PictureSequence::Load(const std::filesystem::path& folder, std::size_t split) {
    std::vector<std::filesystem::path> paths;
    std::error_code error;
    for (std::filesystem::directory_iterator entry(folder, error), end; !error && entry != end;
         entry.increment(error)) {
        if (IsPictureName(entry->path()) && entry->is_regular_file(error)) {
            paths.push_back(entry->path());
        }
    }
    if (error) {
        throw PictureError("cannot read the folder " + folder.string() + ": " + error.message());
    }
    if (paths.empty()) {
        throw PictureError("no *.jpg files in " + folder.string());
    }
    std::ranges::sort(paths);
    std::vector<std::string> files;
    std::vector<std::string> names;
    for (const auto& path : paths) {
        files.push_back(ReadFile(path));
        names.push_back(path.string());
    }
    return PictureSequence(std::move(files), names, split);
}

} // namespace phone
