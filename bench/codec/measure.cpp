#include "bench/codec/cases.h"

#include <algorithm>
#include <chrono>
#include <ctime>
#include <vector>

#include <malloc.h>
#include <sched.h>

namespace bench {
namespace {

constexpr std::size_t kFramesATurn = 8;
constexpr std::size_t kLeastRounds = 3;

double ThreadMicroseconds() {
    timespec now{};
    clock_gettime(CLOCK_THREAD_CPUTIME_ID, &now);
    return static_cast<double>(now.tv_sec) * 1e6 + static_cast<double>(now.tv_nsec) / 1e3;
}

double Time(const FrameWork& work, std::size_t begin, std::size_t end) {
    const double start = ThreadMicroseconds();
    for (std::size_t frame = begin; frame < end; ++frame)
        work(frame);
    return ThreadMicroseconds() - start;
}

// The value a share of the way through the sorted ones.
double Quantile(std::vector<double> values, double share) {
    std::sort(values.begin(), values.end());
    const double at = share * static_cast<double>(values.size() - 1);
    const auto index = static_cast<std::size_t>(at);
    const double next = values[std::min(index + 1, values.size() - 1)];
    return values[index] + (next - values[index]) * (at - static_cast<double>(index));
}

} // namespace

Timing MeasurePair(std::size_t frames, double seconds, const FrameWork& ours, const FrameWork& peer) {
    using Clock = std::chrono::steady_clock;
    std::vector<double> oursRounds, peerRounds, ratios;
    bool oursFirst = true;
    const auto round = [&](double& oursTime, double& peerTime) {
        oursTime = peerTime = 0;
        for (std::size_t begin = 0; begin < frames; begin += kFramesATurn) {
            const std::size_t end = std::min(begin + kFramesATurn, frames);
            if (oursFirst)
                oursTime += Time(ours, begin, end);
            peerTime += Time(peer, begin, end);
            if (!oursFirst)
                oursTime += Time(ours, begin, end);
            oursFirst = !oursFirst;
        }
    };
    double oursTime = 0, peerTime = 0;
    round(oursTime, peerTime);
    const auto end =
        Clock::now() + std::chrono::duration_cast<Clock::duration>(std::chrono::duration<double>(seconds));
    while (Clock::now() < end || ratios.size() < kLeastRounds) {
        round(oursTime, peerTime);
        // Each frame meets the other order in the next round, also when the number of turns is even.
        oursFirst = ratios.size() % 2 == 0;
        oursRounds.push_back(oursTime / static_cast<double>(frames));
        peerRounds.push_back(peerTime / static_cast<double>(frames));
        ratios.push_back(peerTime / oursTime);
    }
    Timing timing;
    timing.ours = Quantile(oursRounds, 0.5);
    timing.peer = Quantile(peerRounds, 0.5);
    timing.ratio = timing.peer / timing.ours;
    timing.low = Quantile(ratios, 0.25);
    timing.high = Quantile(ratios, 0.75);
    timing.rounds = ratios.size();
    return timing;
}

void PinToOneCore() {
    cpu_set_t allowed;
    CPU_ZERO(&allowed);
    if (sched_getaffinity(0, sizeof allowed, &allowed) != 0)
        return;
    int last = -1;
    for (int core = 0; core < CPU_SETSIZE; ++core) {
        if (CPU_ISSET(core, &allowed))
            last = core;
    }
    if (last < 0)
        return;
    CPU_ZERO(&allowed);
    CPU_SET(last, &allowed);
    sched_setaffinity(0, sizeof allowed, &allowed);
}

void KeepHeap() {
    mallopt(M_MMAP_MAX, 0);
    mallopt(M_TRIM_THRESHOLD, 1 << 30);
    mallopt(M_TOP_PAD, 64 << 20);
}

} // namespace bench
