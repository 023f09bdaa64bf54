// What is recorded, how it is found again, and what a crash leaves of it.

#include <csignal>
#include <cstdio>
#include <random>

#include <sys/wait.h>
#include <unistd.h>

#include "host/recording.h"
#include "host/recordings/folder.h"

namespace host::test {
namespace {

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
    host.recorder->SetModes({{"yard", RecordMode::Always}, {"shed", RecordMode::Always}});
    std::vector<std::string> sent;
    const auto show = [&](std::chrono::milliseconds from, std::chrono::milliseconds to,
                          std::uint64_t connection, int width, std::chrono::milliseconds late) {
        for (auto time = from; time < to; time += 200ms) {
            host.Show("yard", time, connection, width, late);
            host.Show("shed", time, connection, width, late);
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
    EXPECT_EQ(host.Told(RecordingNews::Kind::ClockSetBack), 1U) << "of all cameras";
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
    const auto exported = [&](const TimeSpan& span, const Film& film, const char* name) {
        FileSink sink(host.disk, host.folder.File(name));
        EXPECT_TRUE(WriteFilm(recordings.Range(yard, span), film, sink));
        return Probed(host.folder.File(name));
    };
    EXPECT_NE(exported({kStart + 9000, kStart + 11'000}, {}, "range.mkv").find("nb_read_packets=11 "),
              std::string::npos);
    EXPECT_NE(exported({kStart, kStart + 9999}, {.speed = 10}, "lapse.mkv").find("nb_read_packets=25 "),
              std::string::npos);
    FileSink sink(host.disk, host.folder.File("stopped.mkv"));
    EXPECT_FALSE(
        WriteFilm(recordings.Range(yard, {0, kStart * 2}), {.progress = [](UnixMs) { return false; }}, sink));
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
        if (!cut.empty() && cut.back().bytes > 2000) {
            EXPECT_NE(Probed(folder.PathOf(cut.back())).find("title=yard"), std::string::npos) << about;
        }
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
} // namespace host::test
