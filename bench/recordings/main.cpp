// What recording costs beside watching: the processor time of this process while cameras bring pictures that
// are watched, and while they are recorded as well, in turns. Then how soon a picture of a long day is found.
//
//     recordings_bench [--pictures DIR] [--cameras 10] [--rate 10] [--seconds 5] [--rounds 3] [--folder DIR]
//
// DIR holds *.jpg files to be sent. `--folder` is where recordings go, a new one that is removed at the end.

#include <algorithm>
#include <chrono>
#include <cstdio>
#include <ctime>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <random>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "host/recordings/recorder.h"
#include "host/recordings/recordings.h"
#include "platform/options.h"

namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

struct Options {
    std::string pictures = "phone/pictures/yard";
    std::string folder = "/tmp/morrowstream-recordings-bench";
    int cameras = 10;
    int rate = 10;
    int seconds = 5;
    int rounds = 3;
};

constexpr const char* kUsage =
    "recordings_bench [--pictures DIR] [--cameras N] [--rate N] [--seconds N] [--rounds N] "
    "[--folder DIR]";

double ProcessSeconds() {
    timespec time{};
    ::clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) + static_cast<double>(time.tv_nsec) * 1e-9;
}

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

// Cameras that bring pictures in time, each watched by somebody.
class Scene {
public:
    explicit Scene(const Options& options)
        : m_options(options), m_pictures(ReadPictures(options.pictures)),
          m_library({.folder = options.folder, .disk = m_disk, .tell = {}}),
          m_recorder(m_library, m_disk,
                     [](const host::RecordingNews& news) { std::puts(news.text.c_str()); }) {
        for (int i = 0; i < options.cameras; ++i) {
            m_names.push_back("camera " + std::to_string(i));
            m_taps.push_back(m_recorder.TapOf(m_names.back()));
        }
    }

    // The part of a core that it took.
    double Run(bool record) {
        std::map<std::string, host::RecordMode, std::less<>> modes;
        for (const std::string& name : m_names)
            modes[name] = record ? host::RecordMode::Always : host::RecordMode::Off;
        m_recorder.SetModes(modes);
        const double before = ProcessSeconds();
        const auto began = std::chrono::steady_clock::now();
        auto next = began;
        for (int i = 0; i < m_options.seconds * m_options.rate; ++i) {
            std::this_thread::sleep_until(next += 1'000'000us / m_options.rate);
            for (const auto& tap : m_taps) {
                const kit::PlaneLayout layout{320, 240, false};
                ++m_number;
                const auto picture = std::make_shared<const kit::Picture>(
                    m_number, kit::AllocateFrame(layout), layout, m_pictures[m_number % m_pictures.size()]);
                m_watched += picture->Jpeg().size();
                tap->OnPicture(picture, 1);
            }
        }
        const std::chrono::duration<double> took = std::chrono::steady_clock::now() - began;
        return (ProcessSeconds() - before) / took.count();
    }

    [[nodiscard]] host::Library& Library() { return m_library; }

private:
    const Options& m_options;
    const std::vector<std::string> m_pictures;
    host::Disk m_disk;
    host::Library m_library;
    host::Recorder m_recorder;
    std::vector<std::string> m_names;
    std::vector<std::shared_ptr<host::PictureTap>> m_taps;
    std::uint64_t m_number = 0;
    std::size_t m_watched = 0;
};

void MeasureCost(const Options& options) {
    Scene scene(options);
    (void)scene.Run(true); // loads what it needs
    std::printf("%d cameras, %d pictures a second each, per cent of a core\n  watched  and recorded  more\n",
                options.cameras, options.rate);
    for (int round = 0; round < options.rounds; ++round) {
        const double watched = scene.Run(false);
        const double recorded = scene.Run(true);
        std::printf("  %7.2f  %12.2f  %4.2f\n", watched * 100, recorded * 100, (recorded - watched) * 100);
    }
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
            {"--cameras", platform::NumberFrom(1, 1000, options.cameras)},
            {"--rate", platform::NumberFrom(1, 100, options.rate)},
            {"--seconds", platform::NumberFrom(1, 3600, options.seconds)},
            {"--rounds", platform::NumberFrom(1, 100, options.rounds)},
        };
        platform::ReadOptions(arguments, table, [](std::string_view word) {
            throw platform::UsageError("unknown argument \"" + std::string(word) + "\"");
        });
        if (fs::exists(options.folder))
            throw platform::UsageError(options.folder + " is there already");
        MeasureCost(options);
        MeasureSeeks(options);
        fs::remove_all(options.folder);
        return 0;
    } catch (const std::exception& error) {
        std::fprintf(stderr, "recordings_bench: %s\nusage: %s\n", error.what(), kUsage);
        return 1;
    }
}
