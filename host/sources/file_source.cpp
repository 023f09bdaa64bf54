#include "host/sources/sources.h"

#include <algorithm>

#include "image/FrameBlock.h"
#include "image/ImageCodec.h"
#include "platform/files.h"
#include "platform/text.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr std::size_t kMostFiles = 10'000;
constexpr std::size_t kMostFileBytes = std::size_t{8} << 20;
constexpr std::int64_t kMostPixels = std::int64_t{4096} * 4096;

bool IsPictureName(std::string_view name) {
    const auto dot = name.rfind('.');
    if (dot == std::string_view::npos || dot == 0)
        return false;
    const std::string_view ending = name.substr(dot + 1);
    return platform::EqualsIgnoringCase(ending, "jpg") || platform::EqualsIgnoringCase(ending, "jpeg");
}

std::vector<std::string> ListPictures(const fs::path& folder) {
    std::vector<std::string> files;
    std::error_code error;
    for (fs::directory_iterator entry(folder, error), end; !error && entry != end; entry.increment(error)) {
        const bool regular = fs::is_regular_file(entry->symlink_status(error));
        if (regular && IsPictureName(entry->path().filename().string()) && files.size() < kMostFiles)
            files.push_back(entry->path().filename().string());
    }
    std::ranges::sort(files);
    return files;
}

// It keeps the file for those who want JPEG.
kit::PicturePtr PictureOfJpeg(std::uint64_t sequence, std::string file) {
    kit::PlaneLayout layout;
    kit::FrameContent content = DecodeFile(file, &layout);
    return content
               ? std::make_shared<const kit::Picture>(sequence, std::move(content), layout, std::move(file))
               : nullptr;
}

} // namespace

kit::FrameContent DecodeFile(std::string_view file, kit::PlaneLayout* layout) {
    const auto* bytes = reinterpret_cast<const std::uint8_t*>(file.data());
    const auto size = static_cast<std::int32_t>(std::min(file.size(), kMostFileBytes));
    ImageKind kind{};
    if (ProbeJpeg(bytes, size, layout->width, layout->height, kind) != ImageOk || layout->width < 1 ||
        layout->height < 1 || std::int64_t{layout->width} * layout->height > kMostPixels)
        return nullptr;
    layout->grey = kind == ImageKindGrey;
    kit::FrameContent content = kit::AllocateFrame(*layout);
    if (!content)
        return nullptr;
    std::uint8_t* y = content.get() + sizeof(BITMAPINFOHEADER);
    const std::ptrdiff_t area = std::ptrdiff_t{layout->width} * layout->height;
    const int half = layout->width / 2;
    const std::int32_t result = layout->grey ? DecodeJpegGrey(bytes, size, y, layout->width)
                                             : DecodeJpegYV12(bytes, size, y, layout->width, y + area, half,
                                                              y + area + area / 4, half);
    return result == ImageOk ? std::move(content) : nullptr;
}

kit::SourcePtr FileSource::Open(const fs::path& folder) {
    std::vector<std::string> files = ListPictures(folder);
    return files.empty() ? nullptr : std::make_shared<FileSource>(folder, std::move(files));
}

kit::PicturePtr FileSource::Now() {
    const std::lock_guard guard(m_mutex);
    const auto elapsed = std::chrono::duration_cast<std::chrono::milliseconds>(Clock::now() - m_started);
    const auto turn = static_cast<std::uint64_t>(elapsed.count() / kPictureMs) + 1;
    if (turn != m_turn || !m_picture) {
        m_picture = Load(turn);
        m_turn = turn;
    }
    return m_picture;
}

kit::PicturePtr FileSource::Load(std::uint64_t turn) const {
    const auto index = static_cast<std::size_t>((turn - 1) % m_files.size());
    auto file = platform::ReadWholeFile((m_folder / m_files[index]).string(), kMostFileBytes);
    if (!file) {
        std::error_code error;
        return fs::is_directory(m_folder, error) ? kit::MakePlaceholder(320, 240) : nullptr;
    }
    kit::PicturePtr picture = PictureOfJpeg(turn, *std::move(file));
    return picture ? picture : kit::MakePlaceholder(320, 240);
}

} // namespace host
