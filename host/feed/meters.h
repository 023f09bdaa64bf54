// Measures of a camera: how long something takes, counted into ranges, and pictures a second.
#pragma once

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

    void Observe(std::chrono::nanoseconds time) noexcept {
        const double seconds = std::chrono::duration<double>(time).count();
        std::size_t range = 0;
        while (range < kEnds.size() && seconds > kEnds[range])
            ++range;
        m_counts[range].fetch_add(1, std::memory_order_relaxed);
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
    void Add(Clock::time_point when) noexcept { m_times[m_added++ % kKept] = when; }

    // The mean rate of the pictures of the last kWindow. A pause longer than the usual distance between
    // pictures counts as well, so that the figure falls when a camera stops.
    [[nodiscard]] double PerSecond(Clock::time_point now) const noexcept {
        std::size_t count = 0;
        Clock::time_point first = now;
        for (; count < m_added && count < kKept; ++count) {
            const auto when = m_times[(m_added - 1 - count) % kKept];
            if (now - when > kWindow)
                break;
            first = when;
        }
        if (count < 2)
            return 0;
        const auto last = m_times[(m_added - 1) % kKept];
        const double span = std::chrono::duration<double>(last - first).count();
        const double distance = span / static_cast<double>(count - 1);
        const double pause = std::chrono::duration<double>(now - last).count();
        const double whole = pause > 2 * distance ? span + pause - distance : span;
        return whole > 0 ? static_cast<double>(count - 1) / whole : 0;
    }

private:
    static constexpr std::size_t kKept = 256;
    static constexpr std::chrono::seconds kWindow{5};

    std::array<Clock::time_point, kKept> m_times{};
    std::size_t m_added = 0;
};

} // namespace host
