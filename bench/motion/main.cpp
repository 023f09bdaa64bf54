// What a camera that is looked at for movement costs a picture more, in microseconds: the means of its cells,
// and what the detector makes of them. Medians, and the middle half of the rounds.

#include <algorithm>
#include <array>
#include <chrono>
#include <cstdio>
#include <random>
#include <vector>

#include <time.h>

#include "host/motion/detector.h"
#include "image/ImageCodec.h"

namespace {

// The processor time of this thread, nanoseconds: what others took does not count.
double ThreadTime() {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return static_cast<double>(time.tv_sec) * 1e9 + static_cast<double>(time.tv_nsec);
}

constexpr int kRounds = 41;
constexpr int kPictures = 16;
constexpr int kTimes = 25; // each picture, a round

struct Size {
    int width;
    int height;
};

class Pictures {
public:
    explicit Pictures(Size size) : m_size(size) {
        std::mt19937 random(1);
        for (std::vector<std::uint8_t>& picture : m_pictures) {
            picture.resize(static_cast<std::size_t>(size.width) * static_cast<std::size_t>(size.height));
            for (std::size_t i = 0; i < picture.size(); ++i)
                picture[i] = static_cast<std::uint8_t>((i / 40 % 2) * 100 + 60 + random() % 9);
        }
    }
    // False where the codec turns the picture down.
    bool Look(int n) {
        return MeanOfCells(m_pictures[static_cast<std::size_t>(n % kPictures)].data(), m_size.width,
                           m_size.height, m_size.width, host::MotionGrid::kMostColumns,
                           host::MotionGrid::kMostRows, m_cells.data()) == ImageOk;
    }
    bool Detect(int n) {
        m_when += host::MotionDetector::kInterval;
        return Look(n) && !m_detector.Look(
                              {host::MotionGrid::kMostColumns, host::MotionGrid::kMostRows, m_cells}, m_when);
    }

private:
    const Size m_size;
    std::array<std::vector<std::uint8_t>, kPictures> m_pictures;
    std::array<std::uint16_t, std::size_t{host::MotionGrid::kMostColumns} * host::MotionGrid::kMostRows>
        m_cells{};
    host::MotionDetector m_detector;
    host::MotionDetector::Time m_when{};
};

template <class Work>
bool Measure(const char* what, Size size, Work work) {
    std::vector<double> rounds;
    for (int round = 0; round < kRounds; ++round) {
        const double began = ThreadTime();
        for (int n = 0; n < kPictures * kTimes; ++n) {
            if (!work(n))
                return false;
        }
        rounds.push_back((ThreadTime() - began) / 1000 / (kPictures * kTimes));
    }
    std::ranges::sort(rounds);
    std::printf("%-8s %4dx%-4d  %7.1f us  (%.1f to %.1f)\n", what, size.width, size.height,
                rounds[kRounds / 2], rounds[kRounds / 4], rounds[3 * kRounds / 4]);
    return true;
}

} // namespace

int main() {
    for (const Size size : {Size{160, 120}, {320, 240}, {640, 480}, {1920, 1080}}) {
        Pictures pictures(size);
        if (!Measure("cells", size, [&](int n) { return pictures.Look(n); }) ||
            !Measure("detect", size, [&](int n) { return pictures.Detect(n); })) {
            std::fputs("motion_bench: still pictures move, or were turned down\n", stderr);
            return 1;
        }
    }
    return 0;
}
