#include "host/http/arrival.h"

#include <algorithm>

// Not <netinet/tcp.h>, whose tcp_info ends before the count of bytes.
#include <linux/tcp.h>
#include <netinet/in.h>
#include <sys/socket.h>

namespace host {
namespace {

// No event tells of an acknowledgement.
constexpr std::chrono::milliseconds kShortestPause{1};
constexpr std::chrono::milliseconds kLongestPause{10};

constexpr std::uint8_t kStateClosed = 7; // TCP_CLOSE

struct State {
    std::uint64_t acknowledged = 0;
    bool ended = true;
};

State StateOf(int fd) noexcept {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return {};
    return {info.tcpi_bytes_acked, info.tcpi_state == kStateClosed};
}

} // namespace

Arrival::Arrival(int fd) noexcept : m_fd(fd), m_before(StateOf(fd).acknowledged) {}

bool Arrival::Await(const Wakeup& stop, std::chrono::milliseconds stall) const {
    std::uint64_t arrived = 0;
    auto deadline = Clock::now() + stall;
    auto pause = kShortestPause;
    for (bool stopped = false;;) {
        const State state = StateOf(m_fd);
        if (state.acknowledged >= m_before + m_sent)
            return true;
        const auto now = Clock::now();
        if (state.acknowledged > arrived) {
            arrived = state.acknowledged;
            deadline = now + stall;
        }
        if (state.ended || stopped || now >= deadline)
            return false;
        stopped = WaitFor({.stop = &stop}, now + pause) == Waited::Stopped;
        pause = std::min(2 * pause, kLongestPause);
    }
}

} // namespace host
