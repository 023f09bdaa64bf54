#include "host/base/wait.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>

#include <poll.h>
#include <sys/eventfd.h>
#include <unistd.h>

namespace host {

Wakeup::Wakeup() : m_fd(::eventfd(0, EFD_CLOEXEC | EFD_NONBLOCK)) {
    if (!m_fd)
        throw std::system_error(errno, std::generic_category(), "eventfd");
}

void Wakeup::Signal() noexcept {
    if (m_set.exchange(true, std::memory_order_acq_rel))
        return;
    const std::uint64_t one = 1;
    // Cannot fail: the counter is at most 1.
    [[maybe_unused]] const auto written = ::write(m_fd.Get(), &one, sizeof one);
}

void Wakeup::Clear() noexcept {
    std::uint64_t count = 0;
    [[maybe_unused]] const auto got = ::read(m_fd.Get(), &count, sizeof count);
    m_set.exchange(false, std::memory_order_acq_rel);
}

Waited WaitFor(const WaitSet& set, Clock::time_point deadline) {
    std::array<pollfd, 3> polled{{
        {set.socket, set.socketEvents, 0},
        {set.wakeup != nullptr ? set.wakeup->Fd() : -1, POLLIN, 0},
        {set.stop != nullptr ? set.stop->Fd() : -1, POLLIN, 0},
    }};
    for (;;) {
        const auto now = Clock::now();
        int timeout = 0;
        if (deadline > now) {
            const auto left = std::chrono::ceil<std::chrono::milliseconds>(deadline - now).count();
            timeout = static_cast<int>(std::min<decltype(left)>(left, 3600 * 1000));
        }
        const int ready = ::poll(polled.data(), polled.size(), timeout);
        if (polled[2].revents != 0 && ready > 0)
            return Waited::Stopped;
        if (ready > 0)
            return polled[0].revents != 0 ? Waited::Ready : Waited::Woken;
        if (ready == 0 && Clock::now() >= deadline)
            return Waited::Timeout;
        if (ready < 0 && errno != EINTR)
            throw std::system_error(errno, std::generic_category(), "poll");
    }
}

} // namespace host
