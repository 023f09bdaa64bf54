// Pictures a second over the last seconds.
#pragma once

#include <array>
#include <cstddef>

#include "host/base/net.h"

namespace host {

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
