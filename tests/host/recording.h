// A recorder with its library on a folder and a disk of its own.
#pragma once

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <map>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/recordings/recorder.h"
#include "host/recordings/recordings.h"
#include "support/Frames.h"
#include "support/Jpeg.h"
#include "support/temp_folder.h"

namespace host::test {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

inline constexpr UnixMs kStart = 1'795'677'414'123; // 2026-11-26T07:16:54.123Z

// A disk that is as full, and takes as little, as a test has it.
class TestDisk : public Disk {
public:
    std::atomic<std::uint64_t> free{std::uint64_t{1} << 40};
    std::atomic<int> error{0}; // of each write
    std::atomic<bool> slow{false};

    [[nodiscard]] std::optional<Space> SpaceAt(const std::string&) const override {
        return Space{free, std::uint64_t{1} << 40};
    }
    bool Write(int file, std::uint64_t position, std::span<const std::uint8_t> bytes) override {
        while (slow)
            std::this_thread::sleep_for(1ms);
        errno = error;
        return error == 0 && Disk::Write(file, position, bytes);
    }
};

inline const std::string& SmallJpeg(int phase, int width = 64) {
    static std::map<std::pair<int, int>, std::string> made;
    std::string& jpeg = made[{phase % 16, width}];
    if (jpeg.empty())
        jpeg = support::MakeJpeg(width, 48, true, phase % 16);
    return jpeg;
}

struct Recording {
    TempFolder folder;
    TestDisk disk;
    std::atomic<UnixMs> now{kStart};
    std::mutex mutex;
    std::vector<RecordingNews> news;
    std::unique_ptr<EventLog> events;
    RecorderLimits limits;
    std::unique_ptr<Library> library;
    std::unique_ptr<Recorder> recorder;
    std::map<std::string, std::shared_ptr<PictureTap>> taps;

    explicit Recording(RecorderLimits how = {.retry = 0ms}) : limits(how) { Start(); }
    ~Recording() { Stop(); }

    void Start() {
        const auto tell = [this](const RecordingNews& what) {
            const std::lock_guard guard(mutex);
            news.push_back(what);
        };
        events = std::make_unique<EventLog>(folder.File("recordings/events"));
        library = std::make_unique<Library>(LibraryParts{.folder = folder.File("recordings"),
                                                         .disk = disk,
                                                         .tell = tell,
                                                         .events = events.get(),
                                                         .now = [this] { return now.load(); },
                                                         .indexWait = 50});
        recorder = std::make_unique<Recorder>(*library, disk, tell, limits);
    }
    void Stop() {
        taps.clear();
        recorder.reset();
        library.reset();
        events.reset();
    }
    void Tell(const std::string& camera, EventKind kind) {
        events->Tell({.time = Event::Time(std::chrono::milliseconds(now)), .kind = kind, .camera = camera});
    }
    void Settle() {
        recorder->Settle();
        library->Settle();
    }
    // At `time` after the start by the monotonic clock; `late`: how much later it is by the wall clock.
    void Show(const std::string& camera, std::chrono::milliseconds time, std::uint64_t connection = 1,
              int width = 64, std::chrono::milliseconds late = 0ms) {
        auto& tap = taps[camera];
        if (!tap)
            tap = recorder->TapOf(camera);
        const UnixMs utc = kStart + (time + late).count();
        const auto frame = platform::ComObject<support::LentFrame>::Create(
            support::MakeBlock(width, 48), SmallJpeg(static_cast<int>(time.count() / 200), width),
            std::chrono::nanoseconds(1h + time).count(), utc * 1'000'000);
        tap->OnPicture(std::make_shared<const kit::Picture>(1, kit::HeldFrame::Of(*frame.Get()),
                                                            kit::PlaneLayout{width, 48, false}),
                       connection);
        now = utc;
    }
    std::vector<RecordedFile> Files(const std::string& camera) {
        Settle();
        return Recordings(*library).Files(library->IdOf(camera), {0, kStart * 2});
    }
    [[nodiscard]] std::size_t Told(RecordingNews::Kind kind) {
        const std::lock_guard guard(mutex);
        return static_cast<std::size_t>(std::ranges::count(news, kind, &RecordingNews::kind));
    }
};

inline std::size_t CountOf(RecordedRange range, std::vector<std::string>* jpegs = nullptr) {
    std::size_t count = 0;
    for (auto picture = range.Next(); picture; picture = range.Next(), ++count) {
        if (jpegs != nullptr)
            jpegs->push_back(picture->jpeg);
    }
    return count;
}

// What the index shows is what the folder holds.
inline void ExpectIndexFollowsFolder(Recording& host) {
    const auto content = RecordingsFolder(host.folder.File("recordings"), host.disk).Look();
    EXPECT_EQ(content.cameras, host.library->Cameras());
    for (const RecordedCamera& camera : content.cameras) {
        auto rows = Recordings(*host.library).Files(camera.id, {0, kStart * 2});
        const auto& files = content.files.at(camera.id);
        ASSERT_EQ(rows.size(), files.size());
        for (std::size_t i = 0; i < rows.size(); ++i) {
            EXPECT_TRUE(rows[i].key == files[i].key && rows[i].begin == files[i].begin &&
                        rows[i].keep == files[i].keep && rows[i].bytes == files[i].bytes)
                << camera.name << ' ' << i;
        }
    }
}

inline std::vector<RecordedFile> AllRows(Recording& host) {
    std::vector<RecordedFile> all;
    for (const RecordedCamera& camera : host.library->Cameras()) {
        for (const RecordedFile& row : Recordings(*host.library).Files(camera.id, {0, kStart * 2}))
            all.push_back(row);
    }
    return all;
}

// What the line of time shows beside recordings.
inline std::string Story(Recording& host) {
    std::string told;
    const Recordings recordings(*host.library);
    for (const RecordedCamera& camera : host.library->Cameras()) {
        for (const TimeSpan& span : recordings.Motion(camera.id, {0, kStart * 2}))
            told += camera.name + ' ' + std::to_string(span.begin) + '-' + std::to_string(span.end) + '\n';
        for (const Event& event : recordings.Events(camera.id, {0, kStart * 2}, true))
            told += AsJson(event).dump() + '\n';
    }
    return told;
}

} // namespace host::test
