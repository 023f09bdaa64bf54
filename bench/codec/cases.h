// The cases of the comparison: what is done to which set of frames, and what comes of it, as lines and as
// JSON.
#pragma once

#include "bench/codec/frames.h"

#include <cstddef>
#include <functional>
#include <optional>
#include <string>
#include <vector>

namespace bench {

// Both sides in microseconds a frame; ratio is peer over ours, so above 1 ours is faster.
struct Timing {
    double ours = 0; // medians over the rounds
    double peer = 0;
    double ratio = 0;
    double low = 0; // the middle half of the ratios of the single rounds
    double high = 0;
    std::size_t rounds = 0;
};

using FrameWork = std::function<void(std::size_t frame)>;

// A round is every frame once on each side. Within it the sides take turns by some frames, and the one that
// begins changes with each turn: what drifts or disturbs meets both. Time is the thread's processor time, so
// that waiting for the core does not count. Runs a round to warm up and then for the given seconds, three
// rounds at least.
Timing MeasurePair(std::size_t frames, double seconds, const FrameWork& ours, const FrameWork& peer);

// Binds the calling thread to one core: the last one that it may use.
void PinToOneCore();

// The heap keeps what it is given and never maps a block of its own for one frame, for both sides alike.
void KeepHeap();

enum class Work {
    Decode,     // a stream to planes, against the peer
    Encode,     // planes to a stream, against the peer
    FrameBlock, // a stream to a frame block (probe, block, decode), against our own plain decode to planes
};

struct Case {
    Work work = Work::Decode;
    const char* format = "420";
    Sampling sampling = Sampling::S420;
    bool progressive = false;
    Size size;
    int quality = 75;

    std::string Name() const; // for example decode/420/320x240/q75
};

std::vector<Case> AllCases();

struct Result {
    std::string name;
    std::size_t frames = 0;
    double bytes = 0; // of one stream, mean
    // Empty when ours and the peer did not agree; nothing is timed then.
    std::optional<Timing> timing;
    std::string fault;
    std::string peer;      // what the peer's column is
    double sizeRatio = 0;  // our streams over the peer's, for encoders; else 0
    double errorRatio = 0; // squared error of the samples, likewise
};

// Makes the set of streams, compares what both sides make of every one of them, and times them if they agree.
Result Run(const Case& work, const std::string& frameFolder, double seconds);

// Of a case that makes streams from planes: fills fault, timing, peer, bytes and the two ratios. Each of the
// peer's transforms is timed against ours, and the one that is faster stands in the result.
void RunEncode(const Case& work, const std::string& frameFolder, double seconds, Result& result);

void PrintLine(const Result& result);
// level and set are those of the kernels (image/kernels/Level.h).
void WriteJson(const std::string& path, int level, const std::string& set,
               const std::vector<Result>& results);

} // namespace bench
