// How long something takes, counted into ranges.
#pragma once

#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include <ctime>

namespace host {

// Any thread may count and read. What is read while others count can be one observation apart.
class Histogram {
public:
    // Upper ends in seconds. A small picture of a phone takes some hundred microseconds; what lies beyond the
    // last end has a range of its own.
    static constexpr std::array<double, 8> kEnds{0.0002, 0.0005, 0.001, 0.002, 0.005, 0.02, 0.1, 0.5};

    void Observe(std::chrono::nanoseconds time) noexcept {
        const double seconds = std::chrono::duration<double>(time).count();
        std::size_t range = 0;
        while (range < kEnds.size() && seconds > kEnds[range])
            ++range;
        m_counts[range].fetch_add(1, std::memory_order_relaxed);
        m_nanoseconds.fetch_add(static_cast<std::uint64_t>(time.count()), std::memory_order_relaxed);
    }
    // Of one range, not of all below it as well.
    [[nodiscard]] std::uint64_t Count(std::size_t range) const noexcept {
        return m_counts[range].load(std::memory_order_relaxed);
    }
    [[nodiscard]] double Seconds() const noexcept {
        return static_cast<double>(m_nanoseconds.load(std::memory_order_relaxed)) * 1e-9;
    }

private:
    std::array<std::atomic<std::uint64_t>, kEnds.size() + 1> m_counts{};
    std::atomic<std::uint64_t> m_nanoseconds{0};
};

// The processor time that this thread has used: unlike the clock it does not count what others took.
inline std::chrono::nanoseconds ThreadTime() noexcept {
    timespec time{};
    ::clock_gettime(CLOCK_THREAD_CPUTIME_ID, &time);
    return std::chrono::seconds(time.tv_sec) + std::chrono::nanoseconds(time.tv_nsec);
}

} // namespace host
