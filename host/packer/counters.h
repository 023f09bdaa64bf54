// What the packers of a host have done, for /metrics.
#pragma once

#include <atomic>
#include <cstdint>

namespace host {

struct PackerCounters {
    std::atomic<std::uint64_t> open{0}; // packers at work now
    std::atomic<std::uint64_t> frames{0};
    std::atomic<std::uint64_t> bytes{0};
    std::atomic<std::uint64_t> cpuNanoseconds{0}; // of the threads that packed, while they did
};

} // namespace host
