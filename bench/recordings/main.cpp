// How soon a picture of a long day is found. (What recording costs a host that is watched anyway is told by
// bench/detect --recording.)
//
//     recordings_bench [--pictures DIR] [--folder DIR]
//
// DIR holds *.jpg files that are recorded. `--folder` is where recordings go, a new one that is removed at
// the end.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <vector>

#include "host/recordings/matroska_writer.h"
#include "host/recordings/recordings.h"
#include "platform/options.h"

namespace {

namespace fs = std::filesystem;

struct Options {
    std::string pictures = "phone/pictures/yard";
    std::string folder = "/tmp/morrowstream-recordings-bench";
};

constexpr const char* kUsage = "recordings_bench [--pictures DIR] [--folder DIR]";

std::vector<std::string> ReadPictures(const std::string& folder) {
    std::vector<std::string> pictures;
    for (const auto& entry : fs::directory_iterator(folder)) {
        if (entry.path().extension() != ".jpg")
            continue;
        std::ifstream file(entry.path(), std::ios::binary);
        pictures.emplace_back(std::istreambuf_iterator<char>(file), std::istreambuf_iterator<char>());
    }
    if (pictures.empty())
        throw std::runtime_error("no *.jpg in " + folder);
    return pictures;
}

// A day of one camera with a picture a second, as a page asks that is dragged along it.
void MeasureSeeks(const Options& options) {
    const auto pictures = ReadPictures(options.pictures);
    host::Disk disk;
    host::Library library({.folder = options.folder + "/day", .disk = disk, .tell = {}});
    constexpr host::UnixMs kBegin = 1'700'000'000'000;
    constexpr int kDay = 86'400;
    for (int second = 0; second < kDay;) {
        host::RecordedFile file = library.Begin("yard", kBegin + second * 1000LL);
        host::FileSink sink(disk, library.PathOf(file));
        host::MatroskaWriter writer(sink, {"yard", file.begin, 320, 240});
        for (int i = 0; i < 600; ++i, ++second)
            writer.Add(i * 1000LL, pictures[static_cast<std::size_t>(second) % pictures.size()]);
        writer.Finish();
        file.end = file.begin + 599'000;
        file.bytes = writer.Bytes();
        file.state = host::FileState::Finished;
        library.Put(file);
    }
    library.Settle();
    const host::Recordings recordings(library);
    std::mt19937 random(1);
    std::vector<double> times;
    for (int i = 0; i < 2000; ++i) {
        const host::UnixMs asked = kBegin + static_cast<host::UnixMs>(random() % kDay) * 1000;
        const auto began = std::chrono::steady_clock::now();
        const auto picture = recordings.At(1, asked);
        times.push_back(
            std::chrono::duration<double, std::milli>(std::chrono::steady_clock::now() - began).count());
        if (!picture || picture->time != asked)
            throw std::runtime_error("a picture was not found");
    }
    std::ranges::sort(times);
    std::printf(
        "a picture of a day (86,400 pictures, 2000 random moments): median %.2f ms, 99 of 100 %.2f ms, "
        "longest %.2f ms\n",
        times[1000], times[1980], times.back());
}

} // namespace

int main(int argc, char** argv) {
    try {
        Options options;
        const std::vector<std::string_view> arguments(argv + 1, argv + argc);
        const std::vector<platform::Option> table{
            {"--pictures", platform::SomeText(options.pictures)},
            {"--folder", platform::SomeText(options.folder)},
        };
        platform::ReadOptions(arguments, table, [](std::string_view word) {
            throw platform::UsageError("unknown argument \"" + std::string(word) + "\"");
        });
        if (fs::exists(options.folder))
            throw platform::UsageError(options.folder + " is there already");
        MeasureSeeks(options);
        fs::remove_all(options.folder);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "recordings_bench: %s\nusage: %s\n", error.what(), kUsage);
        return 1;
    }
}
