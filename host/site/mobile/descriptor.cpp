#include "host/site/mobile/pages.h"

#include <array>
#include <memory>
#include <string_view>

#include <zip.h>

#include "platform/text.h"

namespace host {
namespace {

struct CloseArchive {
    void operator()(zip_t* archive) const noexcept { zip_discard(archive); }
};
struct CloseFile {
    void operator()(zip_file_t* file) const noexcept { (void)zip_fclose(file); }
};

// The component's manifests have some two thousand bytes.
constexpr zip_uint64_t kLargestManifest = 64 * 1024;

std::optional<std::string> ReadManifest(const std::string& bytes) {
    zip_source_t* const source = zip_source_buffer_create(bytes.data(), bytes.size(), 0, nullptr);
    if (source == nullptr)
        return std::nullopt;
    const std::unique_ptr<zip_t, CloseArchive> archive(zip_open_from_source(source, ZIP_RDONLY, nullptr));
    if (!archive) {
        zip_source_free(source);
        return std::nullopt;
    }
    const zip_int64_t index = zip_name_locate(archive.get(), "META-INF/MANIFEST.MF", ZIP_FL_NOCASE);
    zip_stat_t about;
    if (index < 0 || zip_stat_index(archive.get(), static_cast<zip_uint64_t>(index), 0, &about) != 0 ||
        (about.valid & ZIP_STAT_SIZE) == 0 || about.size > kLargestManifest)
        return std::nullopt;
    const std::unique_ptr<zip_file_t, CloseFile> file(
        zip_fopen_index(archive.get(), static_cast<zip_uint64_t>(index), 0));
    std::string text(about.size, '\0');
    if (!file || zip_fread(file.get(), text.data(), text.size()) != static_cast<zip_int64_t>(text.size()))
        return std::nullopt;
    return text;
}

// The line "key: value" of a manifest, with its end; empty where there is none.
std::string_view LineOf(std::string_view manifest, std::string_view key) {
    while (!manifest.empty()) {
        const std::size_t end = manifest.find('\n');
        const std::string_view line =
            manifest.substr(0, end == std::string_view::npos ? manifest.size() : end + 1);
        manifest.remove_prefix(line.size());
        if (line.starts_with(key) && line.substr(key.size()).starts_with(": "))
            return line;
    }
    return {};
}

} // namespace

std::optional<std::string> DescribeArchive(const std::string& archive, const std::string& url) {
    static constexpr std::array<std::string_view, 6> kKeys = {
        "MIDlet-Name",         "MIDlet-Version", "MIDlet-Vendor", "MIDlet-1", "MicroEdition-Configuration",
        "MicroEdition-Profile"};
    const auto manifest = ReadManifest(archive);
    if (!manifest)
        return std::nullopt;
    std::string text;
    for (const std::string_view key : kKeys) {
        const std::string_view line = LineOf(*manifest, key);
        if (line.empty())
            return std::nullopt;
        text += line;
    }
    // The component writes a manifest in the code page of the configured language; a descriptor is UTF-8.
    text = platform::ToUtf8(platform::ToWide(text, platform::kCodePageThread));
    text += "MIDlet-Jar-URL: " + url + "\r\n";
    text += "MIDlet-Jar-Size: " + std::to_string(archive.size()) + "\r\n";
    return text;
}

} // namespace host
