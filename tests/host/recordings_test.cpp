// What is recorded, what becomes of it, and how it is found again.

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <map>
#include <random>
#include <thread>
#include <vector>

#include <sqlite3.h>
#include <sys/wait.h>
#include <unistd.h>

#include "host/recordings/file_names.h"
#include "host/recordings/recorder.h"
#include "host/recordings/recordings.h"
#include "support/Frames.h"
#include "support/Jpeg.h"
#include "support/Wait.h"
#include "support/temp_folder.h"

namespace host {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

constexpr UnixMs kStart = 1'795'677'414'123; // 2026-11-26T07:16:54.123Z

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

const std::string& SmallJpeg(int phase, int width = 64) {
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

std::string OutputOf(const std::string& command) {
    std::string output;
    FILE* const pipe = ::popen(command.c_str(), "r");
    char part[4096];
    for (std::size_t read = 0; (read = std::fread(part, 1, sizeof part, pipe)) > 0;)
        output.append(part, read);
    EXPECT_EQ(::pclose(pipe), 0) << command;
    return output;
}

// What another program finds in a file: "TITLE CREATED CODEC PICTURES".
std::string Probed(const std::string& path) {
    std::string found = OutputOf("ffprobe -v error -count_packets -show_entries "
                                 "format_tags=title,creation_time:stream=codec_name,nb_read_packets "
                                 "-of default=noprint_wrappers=1 '" +
                                 path + "'");
    std::ranges::replace(found, '\n', ' ');
    return found;
}

std::size_t CountOf(RecordedRange range, std::vector<std::string>* jpegs = nullptr) {
    std::size_t count = 0;
    for (auto picture = range.Next(); picture; picture = range.Next(), ++count) {
        if (jpegs != nullptr)
            jpegs->push_back(picture->jpeg);
    }
    return count;
}

TEST(FileNames, AreReadAsTheyAreWritten) {
    const RecordedFile file{.key = {3, 17}, .begin = kStart};
    const std::string path = RelativePathOf(file);
    EXPECT_EQ(path, "3/2026-11-26/2026-11-26_07-16-54.123_17.mkv");
    const auto parsed = ParseFileName(fs::path(path).filename().string());
    EXPECT_TRUE(parsed && parsed->begin == kStart && parsed->number == 17);
    for (const char* other :
         {"", ".mkv", "2026-11-26_07-16-54.123_17.mkv.keep", "2026-11-26_07-16-54.123_17.avi",
          "2026-11-26_07-16-54.123_.mkv", "2026-11-26_07-16-54.123_0.mkv", "2026-11-26_07-16-54.123_017.mkv",
          "2026-02-30_07-16-54.123_1.mkv", "2026-11-26_24-16-54.123_1.mkv", "2026-11-26_07-16-54.123_-1.mkv",
          "2026-11-26_07-16-54.123_99999999999999999999.mkv", "+026-11-26_07-16-54.123_1.mkv"})
        EXPECT_FALSE(ParseFileName(other)) << other;
}

// A file ends with its time, its bytes, the connection, the size of the pictures and the wall clock.
TEST(Recorder, KeepsAllPicturesAsTheyWereInFilesThatOthersRead) {
    Recording host({.fileTime = 10s, .retry = 0ms});
    host.recorder->SetModes({{"yard", RecordMode::Always}});
    std::vector<std::string> sent;
    const auto show = [&](std::chrono::milliseconds from, std::chrono::milliseconds to,
                          std::uint64_t connection, int width, std::chrono::milliseconds late) {
        for (auto time = from; time < to; time += 200ms) {
            host.Show("yard", time, connection, width, late);
            host.Show("gate", time, connection, width, late); // is not to be recorded
            sent.push_back(SmallJpeg(static_cast<int>(time.count() / 200), width));
        }
        host.Settle();
    };
    show(0s, 12s, 1, 64, 0s);
    show(12s, 13s, 2, 64, 0s);
    show(13s, 14s, 2, 80, 0s);
    show(14s, 15s, 2, 80, 1900ms);
    show(15s, 20s, 2, 80, -1h);
    const auto files = host.Files("yard");
    ASSERT_EQ(files.size(), 5U);
    const std::vector<UnixMs> begins{0, 10'000, 12'000, 13'000, 15'000 - 3'600'000};
    const std::vector<UnixMs> lengths{9800, 1800, 800, 1800, 0};
    for (std::size_t i = 0; i < 5; ++i) {
        EXPECT_EQ(files[i].begin, kStart + begins[i]);
        EXPECT_EQ(files[i].key.number, static_cast<std::int64_t>(i) + 1);
        if (i < 4) {
            EXPECT_EQ(files[i].end - files[i].begin, lengths[i]);
            EXPECT_EQ(files[i].state, FileState::Finished);
            EXPECT_EQ(files[i].bytes, fs::file_size(host.library->PathOf(files[i])));
        }
    }
    EXPECT_EQ(files[4].state, FileState::Open);
    EXPECT_EQ(host.library->IdOf("gate"), 0);
    EXPECT_EQ(
        Probed(host.library->PathOf(files[0])),
        "codec_name=mjpeg nb_read_packets=50 TAG:title=yard TAG:creation_time=2026-11-26T07:16:54.123000Z ");
    const fs::path path = host.library->PathOf(files[0]);
    EXPECT_EQ(fs::status(path).permissions(), fs::perms::owner_read | fs::perms::owner_write);
    EXPECT_EQ(fs::status(path.parent_path()).permissions(), fs::perms::owner_all);

    const Recordings recordings(*host.library);
    const std::int64_t yard = host.library->IdOf("yard");
    std::vector<std::string> read;
    host.recorder.reset(); // the last file ends
    host.library->Settle();
    EXPECT_EQ(CountOf(recordings.Range(yard, {0, kStart * 2}), &read), sent.size());
    EXPECT_EQ(read, sent);
    EXPECT_EQ(CountOf(recordings.Range(yard, {kStart + 1000, kStart + 2000})), 6U);
    // An hour that was there twice shows both, and a seek takes the later one.
    EXPECT_EQ(recordings.Coverage(yard, {kStart - 3'600'000, kStart * 2}),
              (std::vector<TimeSpan>{{kStart + 15'000 - 3'600'000, kStart + 19'800 - 3'600'000},
                                     {kStart, kStart + 14'800}}));
    EXPECT_EQ(recordings.Days(yard, 0), std::vector<std::int64_t>{kStart / 86'400'000});
    EXPECT_EQ(recordings.Days(yard, -8 * 60).front(), kStart / 86'400'000 - 1);

    // By time: within a recording the newest until then, else the nearest.
    const struct {
        UnixMs asked, found;
    } seeks[] = {{0, 0},
                 {1, 0},
                 {1399, 1200},
                 {1400, 1400},
                 {10'100, 10'000},
                 {11'900, 11'800},
                 {13'999, 13'800},
                 {1'000'000'000, 14'800},
                 {-1, 0},
                 {-3'000'000, 19'800 - 3'600'000},
                 {17'300 - 3'600'000, 17'200 - 3'600'000}};
    for (const auto& seek : seeks) {
        const auto picture = recordings.At(yard, kStart + seek.asked);
        ASSERT_TRUE(picture) << seek.asked;
        EXPECT_EQ(picture->time - kStart, seek.found) << seek.asked;
    }
    // By steps, from the first picture to the last and back.
    std::size_t steps = 1;
    auto at = recordings.At(yard, kStart);
    for (auto next = recordings.After(yard, at->file, at->time); next; ++steps) {
        EXPECT_EQ(next->jpeg, sent[steps]);
        at = next;
        next = recordings.After(yard, at->file, at->time);
    }
    EXPECT_EQ(steps, sent.size());
    for (auto before = recordings.Before(yard, at->file, at->time); before; --steps) {
        at = before;
        before = recordings.Before(yard, at->file, at->time);
    }
    EXPECT_EQ(steps, 1U);

    // An export is what was marked, to the picture; a time lapse shows what a screen can.
    const auto exported = [&](const Recordings::Export& wanted, const char* name) {
        FileSink sink(host.disk, host.folder.File(name));
        EXPECT_TRUE(recordings.Write(yard, wanted, sink));
        return Probed(host.folder.File(name));
    };
    EXPECT_NE(exported({.span = {kStart + 9000, kStart + 11'000}}, "range.mkv").find("nb_read_packets=11 "),
              std::string::npos);
    EXPECT_NE(
        exported({.span = {kStart, kStart + 9999}, .speed = 10}, "lapse.mkv").find("nb_read_packets=25 "),
        std::string::npos);
    FileSink sink(host.disk, host.folder.File("stopped.mkv"));
    EXPECT_FALSE(
        recordings.Write(yard, {.span = {0, kStart * 2}, .progress = [](UnixMs) { return false; }}, sink));
}

// What is being written can be read, and goes on to be found while it grows.
TEST(Recordings, FollowAFileThatGrows) {
    Recording host;
    host.recorder->SetModes({{"yard", RecordMode::Always}});
    const Recordings recordings(*host.library);
    for (int second = 0; second < 60; ++second) {
        for (int i = 0; i < 5; ++i)
            host.Show("yard", second * 1s + i * 200ms);
        if (second % 10 != 9)
            continue;
        host.Settle();
        const UnixMs asked = kStart + second * 1000 - 2000;
        const auto picture = recordings.At(host.library->IdOf("yard"), asked);
        ASSERT_TRUE(picture);
        EXPECT_EQ(picture->time, asked);
        EXPECT_EQ(recordings.At(host.library->IdOf("yard"), kStart)->time, kStart);
    }
    EXPECT_EQ(recordings.Files(1, {0, kStart * 2}).size(), 1U);
}

TEST(Recorder, RecordsTheTimeAroundMotion) {
    Recording host({.beforeBytesOfCamera = 8 * SmallJpeg(0).size() + 4000, .retry = 0ms});
    host.recorder->SetModes({{"yard", RecordMode::OnMotion}, {"gate", RecordMode::OnMotion}});
    const auto show = [&](std::chrono::milliseconds from, std::chrono::milliseconds to,
                          std::chrono::milliseconds apart) {
        for (auto time = from; time < to; time += apart)
            host.Show("yard", time);
    };
    show(0s, 20s, 1s);
    EXPECT_EQ(host.Files("yard").size(), 0U);
    host.recorder->MotionBegan("yard");
    host.recorder->MotionBegan("yard");
    show(20s, 22s, 1s);
    host.recorder->MotionEnded("yard");
    show(22s, 40s, 1s);
    auto files = host.Files("yard");
    ASSERT_EQ(files.size(), 1U);
    EXPECT_EQ(files[0].begin, kStart + 14'000) << "five seconds before the newest picture";
    EXPECT_EQ(files[0].end, kStart + 26'000) << "five seconds after the last one that moved";
    // Many pictures: no more bytes than that are kept of the time before.
    show(40s, 45s, 50ms);
    host.recorder->MotionBegan("yard");
    show(45s, 46s, 1s);
    files = host.Files("yard");
    ASSERT_EQ(files.size(), 2U);
    EXPECT_GT(files[1].begin, kStart + 44'000);
    EXPECT_LT(files[1].begin, kStart + 44'900);
    // Nothing of what came while it was off.
    host.recorder->SetModes({});
    show(46s, 50s, 1s);
    EXPECT_EQ(host.Files("yard")[1].state, FileState::Finished);
}

TEST(Recorder, DropsWhatTheDiskDoesNotTakeAndSaysSo) {
    Recording host({.waitingPictures = 10, .retry = 0ms});
    host.recorder->SetModes({{"yard", RecordMode::Always}});
    host.disk.slow = true;
    for (int i = 0; i < 60; ++i) {
        host.Show("yard", i * 100ms);
        std::this_thread::sleep_for(1ms);
    }
    host.disk.slow = false;
    host.Settle();
    const auto figures = host.recorder->Figures();
    ASSERT_EQ(figures.size(), 1U);
    EXPECT_GE(figures[0].dropped, 20U);
    EXPECT_EQ(figures[0].pictures + figures[0].dropped, 60U);
    EXPECT_EQ(host.Told(RecordingNews::Kind::Dropped), 1U);
}

// A disk without room, or that cannot be written: nothing is lost of what was there, and it goes on by
// itself.
TEST(Recorder, PausesWhileTheDiskTakesNothing) {
    Recording host;
    host.recorder->SetModes({{"yard", RecordMode::Always}, {"gate", RecordMode::Always}});
    host.library->SetLimits({.freePercent = 0, .freeBytes = 10'000'000});
    auto time = 0ms;
    const auto show = [&](int pictures) {
        for (int i = 0; i < pictures; ++i, time += 500ms) {
            host.Show("yard", time);
            host.Show("gate", time);
        }
        host.Settle();
    };
    using Kind = RecordingNews::Kind;
    show(10);
    for (const int error : {ENOSPC, EROFS}) {
        host.disk.error = error;
        show(10);
        EXPECT_NE(host.recorder->PausedBecause(), "");
        host.disk.error = 0;
        show(10);
        EXPECT_EQ(host.recorder->PausedBecause(), "");
    }
    EXPECT_TRUE(host.Told(Kind::Paused) == 2 && host.Told(Kind::Resumed) == 2) << "one event each";
    EXPECT_NE(host.news.front().text.find("No space left on device"), std::string::npos)
        << host.news.front().text;
    host.recorder->SetModes({});
    EXPECT_GE(CountOf(Recordings(*host.library).Range(1, {0, kStart * 2})), 27U);
    for (const RecordedFile& file : host.Files("yard"))
        EXPECT_TRUE(fs::exists(host.library->PathOf(file)));
    // Less room than shall stay: the oldest go, and what is kept stays.
    const Recordings recordings(*host.library);
    EXPECT_EQ(Recordings(*host.library).Keep(1, {kStart, kStart + 1000}, true), 1U);
    host.disk.free = 0;
    host.Settle();
    EXPECT_EQ(host.Files("yard").size(), 1U);
    EXPECT_EQ(host.Files("gate").size(), 0U);
    host.recorder->SetModes({{"yard", RecordMode::Always}});
    show(4);
    EXPECT_NE(host.recorder->PausedBecause().find("shall stay free"), std::string::npos);
    host.disk.free = 11'000'000;
    host.Settle();
    show(4);
    EXPECT_EQ(host.recorder->PausedBecause(), "");
    EXPECT_TRUE(host.Told(Kind::Paused) == 3 && host.Told(Kind::Resumed) == 3);
}

// What the index shows is what the folder holds.
void ExpectIndexFollowsFolder(Recording& host) {
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

std::vector<RecordedFile> AllRows(Recording& host) {
    std::vector<RecordedFile> all;
    for (const RecordedCamera& camera : host.library->Cameras()) {
        for (const RecordedFile& row : Recordings(*host.library).Files(camera.id, {0, kStart * 2}))
            all.push_back(row);
    }
    return all;
}

// What the line of time shows beside recordings.
std::string Story(Recording& host) {
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

// An hour of twenty cameras, in accelerated time.
TEST(Retention, KeepsToItsLimitsTheOldestFirst) {
    constexpr std::uint64_t kFile = 12'000;
    constexpr std::uint64_t kLimit = 500'000;
    constexpr std::uint64_t kOwnLimit = 30'000;
    Recording host({.fileBytes = kFile, .retry = 0ms});
    std::map<std::string, RecordMode, std::less<>> modes;
    std::vector<std::string> names;
    for (int i = 0; i < 20; ++i)
        names.push_back("camera " + std::to_string(i));
    for (const std::string& name : names)
        modes[name] = RecordMode::Always;
    host.recorder->SetModes(modes);
    const RetentionLimits limits{.bytes = kLimit, .cameras = {{"camera 3", {.bytes = kOwnLimit}}}};
    host.library->SetLimits(limits);
    const auto used = [&](std::int64_t camera) {
        std::uint64_t bytes = 0;
        for (const auto& entry : fs::recursive_directory_iterator(
                 host.folder.File("recordings") + (camera != 0 ? "/" + std::to_string(camera) : ""))) {
            if (entry.path().extension() == ".mkv")
                bytes += entry.file_size();
        }
        return bytes;
    };
    std::map<FileKey, UnixMs> seen;
    for (auto minute = 0min; minute < 60min; minute += 2min) {
        for (auto time = 0s; time < 120s; time += 20s) {
            for (const std::string& name : names)
                host.Show(name, minute + time);
        }
        // Files that are written are ended before they can be deleted, which takes more than one round.
        for (int i = 0; i < 20 && (i < 2 || used(0) > kLimit + kFile); ++i)
            host.Settle();
        // One file, and of the twenty that are written what has come since their bytes were counted last.
        EXPECT_LE(used(0), kLimit + 3 * kFile) << minute.count();
        EXPECT_LE(used(host.library->IdOf("camera 3")), kOwnLimit + kFile) << minute.count();
        for (const RecordedFile& row : AllRows(host))
            seen[row.key] = row.begin;
        host.Tell(names[3], minute % 4min == 0min ? EventKind::MotionBegan : EventKind::MotionEnded);
        if (minute % 10min == 0min)
            host.Tell(minute == 30min ? "" : names[7],
                      minute == 30min ? EventKind::RecordingPaused : EventKind::CameraLost);
        if (minute == 4min) {
            EXPECT_GE(
                Recordings(*host.library).Keep(host.library->IdOf("camera 5"), {kStart, kStart + 1000}, true),
                1U);
        }
    }
    EXPECT_GT(used(0), kLimit / 2);
    host.recorder->SetModes({});
    host.Settle();
    ExpectIndexFollowsFolder(host);
    EXPECT_TRUE(support::Eventually([&] { return host.events->WrittenNumber() == 36; }));
    host.Settle();
    const std::string story = Story(host);
    EXPECT_EQ(std::ranges::count(story, '\n'), 15 + 5 + 20);
    const auto rows = AllRows(host);
    EXPECT_EQ(std::ranges::count(rows, true, &RecordedFile::keep), 1);
    UnixMs oldest = kStart * 2;
    for (const RecordedFile& row : rows) {
        seen.erase(row.key);
        if (!row.keep)
            oldest = std::min(oldest, row.begin);
    }
    for (const auto& [key, begin] : seen) {
        if (key.camera != host.library->IdOf("camera 3"))
            EXPECT_LE(begin, oldest);
    }

    // Lost or damaged, the index is made again as it was, and damage is told.
    const std::string index = host.folder.File("recordings/index.sqlite");
    const auto size = fs::file_size(index);
    for (const bool lost : {true, false}) {
        host.Stop();
        if (lost) {
            fs::remove(index);
        } else {
            std::fstream file(index, std::ios::in | std::ios::out | std::ios::binary);
            file.seekp(static_cast<std::streamoff>(size / 2));
            file << std::string(8000, 'x');
        }
        host.Start();
        host.library->SetLimits(limits);
        host.Settle();
        EXPECT_EQ(AllRows(host), rows);
        EXPECT_EQ(Story(host), story);
        EXPECT_EQ(host.Told(RecordingNews::Kind::IndexLost), lost ? 0U : 1U);
    }
    // Days count from the end of a recording; a camera that is gone goes with its last one.
    host.now = kStart + 86'400'000LL * 7 + 3'500'000;
    host.library->SetPresent({"camera 5", "camera 6"});
    host.Settle();
    for (const RecordedFile& row : AllRows(host))
        EXPECT_TRUE(row.keep || row.end >= kStart + 3'500'000);
    host.now = kStart + 86'400'000LL * 8;
    host.Settle();
    EXPECT_EQ(AllRows(host).size(), 1U);
    EXPECT_EQ(host.library->Cameras().size(), 2U);
    // What happened is known for as long as there is a recording of then.
    const std::int64_t kept = host.library->IdOf("camera 5");
    EXPECT_EQ(Recordings(*host.library).Events(kept, {0, kStart * 2}, true).size(), 1U);
    EXPECT_EQ(Recordings(*host.library).Keep(kept, {0, kStart * 2}, false), 1U);
    host.Settle();
    EXPECT_EQ(Story(host), "");
}

TEST(Library, KnowsARemovedCameraFromANewOneOfItsName) {
    Recording host;
    host.recorder->SetModes({{"yard", RecordMode::Always}});
    host.Show("yard", 0s);
    host.Settle();
    host.library->SetPresent({"yard"});
    EXPECT_EQ(host.library->IdOf("yard"), 1);
    host.library->SetPresent({});
    EXPECT_EQ(host.library->IdOf("yard"), 0);
    host.Stop();
    fs::remove(host.folder.File("recordings/index.sqlite"));
    host.Start();
    host.recorder->SetModes({{"yard", RecordMode::Always}});
    host.Show("yard", 100s);
    host.Settle();
    EXPECT_EQ(host.library->Cameras(), (std::vector<RecordedCamera>{{1, "yard", kStart}, {2, "yard", 0}}));
    // Without what stands beside the files their title has the name.
    host.Stop();
    fs::remove(host.folder.File("recordings/2/camera.json"));
    host.Start();
    EXPECT_EQ(host.library->IdOf("yard"), 2);
}

TEST(Library, GoesOnWhileAnotherProgramHoldsTheIndex) {
    Recording host;
    host.recorder->SetModes({{"yard", RecordMode::Always}});
    host.Show("yard", 0s);
    host.Settle();
    sqlite3* other = nullptr;
    ASSERT_EQ(::sqlite3_open(host.folder.File("recordings/index.sqlite").c_str(), &other), SQLITE_OK);
    ASSERT_EQ(::sqlite3_exec(other, "BEGIN EXCLUSIVE", nullptr, nullptr, nullptr), SQLITE_OK);
    host.Show("yard", 1s, 2);
    host.Settle();
    EXPECT_EQ(host.recorder->PausedBecause(), "");
    EXPECT_EQ(host.Files("yard").size(), 1U) << "what was there can be read";
    EXPECT_EQ(host.Told(RecordingNews::Kind::IndexLocked), 1U);
    ::sqlite3_close(other);
    EXPECT_EQ(host.Files("yard").size(), 2U);
    EXPECT_EQ(host.Told(RecordingNews::Kind::IndexUnlocked), 1U);
}

// A program that is killed at any moment leaves files that others read, without the last second at most, and
// the next start makes them whole.
TEST(Recorder, LosesALastSecondToAKillAndNoMore) {
    const char* const times = std::getenv("MORROW_KILLS");
    std::random_device random;
    for (int round = 0; round < (times != nullptr ? std::atoi(times) : 5); ++round) {
        Recording host({.fileTime = 20s, .retry = 0ms});
        host.Stop();
        int ready[2];
        ASSERT_EQ(::pipe(ready), 0);
        const pid_t child = ::fork();
        ASSERT_GE(child, 0);
        if (child == 0) {
            host.Start();
            host.recorder->SetModes({{"yard", RecordMode::Always}});
            for (auto time = 0ms;; time += 200ms) {
                host.Show("yard", time);
                host.recorder->Settle();
                if (::write(ready[1], "x", 1) != 1)
                    ::_exit(1);
            }
        }
        ::close(ready[1]);
        const std::size_t wanted = 1 + random() % 150;
        std::size_t shown = 0;
        char one = 0;
        while (shown < wanted && ::read(ready[0], &one, 1) == 1)
            ++shown;
        std::this_thread::sleep_for(std::chrono::microseconds(random() % 1000));
        ::kill(child, SIGKILL);
        ::waitpid(child, nullptr, 0);
        while (::read(ready[0], &one, 1) == 1)
            ++shown;
        ::close(ready[0]);
        const std::string about = "killed after " + std::to_string(shown) + " pictures";
        const RecordingsFolder folder(host.folder.File("recordings"), host.disk);
        const auto cut = folder.Look().files[1];
        if (!cut.empty() && cut.back().bytes > 2000)
            EXPECT_NE(Probed(folder.PathOf(cut.back())).find("title=yard"), std::string::npos) << about;
        host.Start();
        host.Settle();
        ExpectIndexFollowsFolder(host);
        std::size_t recorded = 0;
        RecordedRange range = Recordings(*host.library).Range(1, {0, kStart * 2});
        for (auto picture = range.Next(); picture; picture = range.Next(), ++recorded)
            EXPECT_EQ(picture->jpeg, SmallJpeg(static_cast<int>(recorded))) << about;
        EXPECT_GE(recorded + 6, shown) << about;
        EXPECT_LE(recorded, shown + 1) << about;
        const auto rows = AllRows(host);
        EXPECT_EQ(std::ranges::count(rows, FileState::Finished, &RecordedFile::state), std::ssize(rows))
            << about;
        if (rows.empty())
            continue;
        const auto pictures = (rows.back().end - rows.back().begin) / 200 + 1;
        EXPECT_NE(Probed(host.library->PathOf(rows.back())).find("packets=" + std::to_string(pictures) + " "),
                  std::string::npos)
            << about;
    }
}

} // namespace
} // namespace host
