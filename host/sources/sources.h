// The kinds of sources that the host has.
#pragma once

#include <chrono>
#include <filesystem>
#include <mutex>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/wait.h"
#include "host/feed/feed_table.h"
#include "kit/picture/picture.h"

namespace host {

// A camera of the host.
class CameraSource : public kit::Source {
public:
    // A picture older than `staleAfter` is not shown any more.
    CameraSource(FeedTablePtr feeds, std::string name, std::chrono::milliseconds staleAfter)
        : m_feeds(std::move(feeds)), m_name(std::move(name)), m_staleAfter(staleAfter) {}

    // Null once the camera is removed.
    kit::PicturePtr Now() override;

private:
    kit::PicturePtr Placeholder(const kit::PicturePtr& newest);

    const FeedTablePtr m_feeds;
    const std::string m_name;
    const std::chrono::milliseconds m_staleAfter;
    std::mutex m_mutex;
    kit::PicturePtr m_placeholder; // under m_mutex; of the size of the last picture
};

// A drawn clock: something to watch without any camera, and a picture that shows by itself how late it is.
//
// Draws the time of day of this machine: hours, minutes and seconds in the upper row, thousandths in the
// lower one, and below a bar that grows with the second. A picture is made for each fortieth of a second in
// which somebody asks, and shared by all who do.
class ClockSource : public kit::Source {
public:
    static constexpr int kWidth = 320;
    static constexpr int kHeight = 240;

    kit::PicturePtr Now() override;

private:
    std::mutex m_mutex;
    kit::PicturePtr m_picture;
    std::int64_t m_drawnAt = -1; // Unix milliseconds
};

// A JPEG file as a frame block; null when it is none, or a larger one than anybody wants to watch.
kit::FrameContent DecodeFile(std::string_view file, kit::PlaneLayout* layout);

// A folder of pictures.
//
// Shows the *.jpg and *.jpeg files of the folder in the order of their names, five a second, over and over. A
// file that cannot be read or decoded shows as the placeholder; links are passed over. A picture is read when
// its time has come and somebody asks, once for all who do.
class FileSource : public kit::Source {
public:
    static constexpr std::int64_t kPictureMs = 200;

    // Null for a folder without pictures.
    static kit::SourcePtr Open(const std::filesystem::path& folder);

    FileSource(std::filesystem::path folder, std::vector<std::string> files)
        : m_folder(std::move(folder)), m_files(std::move(files)) {}

    // Null when the folder is gone.
    kit::PicturePtr Now() override;
    [[nodiscard]] bool IsJpeg() const noexcept override { return true; }

private:
    [[nodiscard]] kit::PicturePtr Load(std::uint64_t turn) const;

    const std::filesystem::path m_folder;
    const std::vector<std::string> m_files;
    const Clock::time_point m_started = Clock::now();
    std::mutex m_mutex;
    kit::PicturePtr m_picture; // of the turn below
    std::uint64_t m_turn = 0;  // from 1
};

} // namespace host
