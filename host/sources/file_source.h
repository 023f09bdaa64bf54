// A folder of pictures as a source.
#pragma once

#include <filesystem>
#include <mutex>
#include <string>
#include <vector>

#include "host/base/wait.h"
#include "host/content/source.h"

namespace host {

// Shows the *.jpg and *.jpeg files of the folder in the order of their names, five a second, over and over. A
// file that cannot be read or decoded shows as the placeholder; links are passed over. A picture is read when
// its time has come and somebody asks, once for all who do.
class FileSource : public Source {
public:
    static constexpr std::int64_t kPictureMs = 200;

    // Null for a folder without pictures.
    static SourcePtr Open(const std::filesystem::path& folder);

    FileSource(std::filesystem::path folder, std::vector<std::string> files)
        : m_folder(std::move(folder)), m_files(std::move(files)) {}

    // Null when the folder is gone.
    PicturePtr Now() override;
    [[nodiscard]] bool IsJpeg() const noexcept override { return true; }

private:
    [[nodiscard]] PicturePtr Load(std::uint64_t turn) const;

    const std::filesystem::path m_folder;
    const std::vector<std::string> m_files;
    const Clock::time_point m_started = Clock::now();
    std::mutex m_mutex;
    PicturePtr m_picture;     // of the turn below
    std::uint64_t m_turn = 0; // from 1
};

// A JPEG file as a picture, which keeps the file for those who want JPEG. Null when it is none, or a larger
// one than anybody wants to watch.
PicturePtr PictureOfJpeg(std::uint64_t sequence, std::string file);

} // namespace host
