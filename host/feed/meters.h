// Measures of a camera: how long something takes, counted into ranges, and pictures a second.
#pragma once

#include <algorithm>
#include <array>
#include <atomic>
#include <chrono>
#include <cstddef>
#include <cstdint>

#include "host/base/wait.h"

namespace host {

// Any thread may count and read. What is read while others count can be one observation apart.
class Histogram {
public:
    // Upper ends in seconds. A small picture of a phone takes some hundred microseconds; what lies beyond the
    // last end has a range of its own.
    static constexpr std::array<double, 8> kEnds{0.0002, 0.0005, 0.001, 0.002, 0.005, 0.02, 0.1, 0.5};

    void Observe(std::chrono::nanoseconds time) noexcept { Observe(time, 1); }
    // So many that took that long in all, each the same share of it.
    void Observe(std::chrono::nanoseconds time, std::uint32_t count) noexcept {
        const double seconds = std::chrono::duration<double>(time).count() / count;
        std::size_t range = 0;
        while (range < kEnds.size() && seconds > kEnds[range])
            ++range;
        m_counts[range].fetch_add(count, std::memory_order_relaxed);
        m_nanoseconds.fetch_add(static_cast<std::uint64_t>(time.count()), std::memory_order_relaxed);
    }
    // Counts one range, without those below it.
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

class RateMeter {
public:
    // The times of pictures never go back.
    void Add(Clock::time_point when) noexcept {
        m_times[m_added++ % kKept] = when;
        m_first = First(when);
    }

    // The mean rate of the pictures of the last kWindow. A pause longer than the usual distance between
    // pictures counts as well, so that the figure falls when a camera stops.
    [[nodiscard]] double PerSecond(Clock::time_point now) const noexcept {
        const std::size_t first = First(now);
        const std::size_t count = m_added - first;
        if (count < 2)
            return 0;
        const auto last = m_times[(m_added - 1) % kKept];
        const double span = std::chrono::duration<double>(last - m_times[first % kKept]).count();
        const double distance = span / static_cast<double>(count - 1);
        const double pause = std::chrono::duration<double>(now - last).count();
        const double whole = pause > 2 * distance ? span + pause - distance : span;
        return whole > 0 ? static_cast<double>(count - 1) / whole : 0;
    }

private:
    static constexpr std::size_t kKept = 256;
    static constexpr std::chrono::seconds kWindow{5};

    // The number of the oldest picture that is remembered and within the window.
    [[nodiscard]] std::size_t First(Clock::time_point now) const noexcept {
        std::size_t first = std::max(m_first, m_added > kKept ? m_added - kKept : 0);
        while (first < m_added && now - m_times[first % kKept] > kWindow)
            ++first;
        return first;
    }

    std::array<Clock::time_point, kKept> m_times{};
    std::size_t m_added = 0;
    std::size_t m_first = 0; // First, when the newest picture came
};

} // namespace host
