// What becomes of recordings: full disks, limits, and an index that is lost, damaged or held by others.

#include <fstream>

#include <sqlite3.h>

#include "host/recording.h"
#include "support/Wait.h"

namespace host::test {
namespace {

// A disk without room, or that cannot be written: nothing is lost of what was there, and it goes on by
// itself.
TEST(Recorder, PausesWhileTheDiskTakesNothing) {
    Recording host;
    host.recorder->SetModes({{"yard", RecordMode::Always}, {"gate", RecordMode::Always}});
    host.library->SetLimits({.freePercent = 0, .freeBytes = 10'000'000, .cameras = {}});
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
        EXPECT_LE(used(0), kLimit + kFile) << minute.count();
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
        if (key.camera != host.library->IdOf("camera 3")) {
            EXPECT_LE(begin, oldest);
        }
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
    Recordings recordings(*host.library);
    EXPECT_TRUE(recordings.At(kept, kStart));
    EXPECT_EQ(recordings.Keep(kept, {0, kStart * 2}, false), 1U);
    host.Settle();
    EXPECT_EQ(Story(host), "");
    // And its room is the disk's again.
    const auto heldOfGone = [] {
        int count = 0;
        std::error_code error;
        for (const auto& entry : fs::directory_iterator("/proc/self/fd"))
            count += fs::read_symlink(entry, error).string().ends_with(".mkv (deleted)") ? 1 : 0;
        return count;
    };
    EXPECT_EQ(heldOfGone(), 1);
    recordings.CloseIdle();
    EXPECT_EQ(heldOfGone(), 0);
}

TEST(Library, KnowsARemovedCameraFromANewOneOfItsName) {
    Recording host;
    host.recorder->SetModes({{"yard", RecordMode::Always}});
    host.Show("yard", 0s);
    host.Settle();
    host.Tell("yard", EventKind::CameraConnected);
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
    // What happened to the one is not told of the other.
    host.Tell("yard", EventKind::CameraLost);
    EXPECT_TRUE(support::Eventually([&] { return host.events->WrittenNumber() == 2; }));
    host.Settle();
    for (const auto& [camera, kind] :
         {std::pair(1, EventKind::CameraConnected), std::pair(2, EventKind::CameraLost)}) {
        const auto told = Recordings(*host.library).Events(camera, {0, kStart * 2}, true);
        EXPECT_TRUE(told.size() == 1 && told[0].kind == kind) << camera;
    }
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

} // namespace
} // namespace host::test
