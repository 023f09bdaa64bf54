// Two ways of doing the same, timed side by side.
#pragma once

#include <cstddef>
#include <functional>

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

} // namespace bench
