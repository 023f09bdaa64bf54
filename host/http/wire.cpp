#include "host/http/wire.h"

#include <algorithm>
#include <array>
#include <cerrno>

// Not <netinet/tcp.h>, whose tcp_info ends before the count of bytes.
#include <linux/tcp.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>

#include "host/http/endpoint.h"
#include "host/http/limits.h"

namespace host {
namespace {

// How long what the peer still sends is read.
constexpr std::chrono::milliseconds kLinger{500};

// How many bytes can be peeked, up to `size`: 0 when the peer has closed, -1 for nothing yet, -2 when the
// connection is broken.
ssize_t Peek(int fd, char* buffer, std::size_t size) {
    for (;;) {
        const ssize_t got = ::recv(fd, buffer, size, MSG_PEEK | MSG_DONTWAIT);
        if (got >= 0)
            return got;
        if (errno == EAGAIN || errno == EWOULDBLOCK)
            return -1;
        if (errno != EINTR)
            return -2;
    }
}

// Complete when something can be read, or the peer has gone.
HeadResult AwaitBytes(int fd, const Wakeup& stop, Clock::time_point deadline) {
    const Waited waited = WaitFor({.socket = fd, .socketEvents = POLLIN, .stop = &stop}, deadline);
    if (waited == Waited::Stopped)
        return HeadResult::Stopped;
    return waited == Waited::Timeout ? HeadResult::Timeout : HeadResult::Complete;
}

// Peeks again whenever something more has come, until `enough(bytes)`. The low-water mark stands one above
// what was seen, so that the bytes that lie there already do not make the wait return at once.
template <class Enough>
HeadResult PeekUntil(int fd, char* buffer, std::size_t size, const Wakeup& stop, Clock::time_point deadline,
                     bool* anyBytes, Enough enough) {
    struct LowWater {
        int fd;
        ~LowWater() { SetReceiveLowWater(fd, 1); }
    } restore{fd};
    ssize_t seen = 0;
    for (bool waited = false;;) {
        const ssize_t got = Peek(fd, buffer, size);
        if (got == -2 || got == 0)
            return HeadResult::Closed;
        if (got > 0) {
            *anyBytes = true;
            if (enough(static_cast<std::size_t>(got)))
                return HeadResult::Complete;
            if (static_cast<std::size_t>(got) == size)
                return HeadResult::TooLarge;
            // Readable without a new byte: the peer has closed its side behind what is there.
            if (waited && got == seen)
                return HeadResult::Closed;
            seen = got;
            SetReceiveLowWater(fd, static_cast<int>(got) + 1);
        }
        if (const HeadResult ended = AwaitBytes(fd, stop, deadline); ended != HeadResult::Complete)
            return ended;
        waited = true;
    }
}

// No event tells of an acknowledgement.
constexpr std::chrono::milliseconds kShortestPause{1};
constexpr std::chrono::milliseconds kLongestPause{10};

constexpr std::uint8_t kStateClosed = 7; // TCP_CLOSE

struct ConnectionState {
    std::uint64_t acknowledged = 0;
    bool ended = true;
};

ConnectionState StateOf(int fd) noexcept {
    tcp_info info{};
    socklen_t size = sizeof info;
    if (::getsockopt(fd, IPPROTO_TCP, TCP_INFO, &info, &size) != 0)
        return {};
    return {info.tcpi_bytes_acked, info.tcpi_state == kStateClosed};
}

} // namespace

std::size_t FindHeadEnd(std::string_view text) noexcept {
    for (std::size_t at = text.find('\n'); at != std::string_view::npos; at = text.find('\n', at + 1)) {
        if (at + 1 < text.size() && text[at + 1] == '\n')
            return at + 2;
        if (at + 2 < text.size() && text[at + 1] == '\r' && text[at + 2] == '\n')
            return at + 3;
    }
    return 0;
}

Head ReadHead(int fd, const Wakeup& stop, Clock::time_point deadline) {
    Head head;
    head.text.resize(kMaxHeadBytes);
    std::size_t size = 0;
    head.result = PeekUntil(fd, head.text.data(), head.text.size(), stop, deadline, &head.anyBytes,
                            [&](std::size_t got) {
                                size = FindHeadEnd({head.text.data(), got});
                                return size != 0;
                            });
    head.text.resize(size);
    std::size_t taken = 0;
    while (taken < size) {
        const ssize_t got = ::recv(fd, head.text.data() + taken, size - taken, MSG_DONTWAIT);
        if (got > 0)
            taken += static_cast<std::size_t>(got);
        else if (got == 0 || errno != EINTR)
            return {HeadResult::Closed, {}, true};
    }
    return head;
}

HeadResult ReadBody(int fd, std::size_t bytes, std::string* body, const Wakeup& stop,
                    Clock::time_point deadline) {
    // Grows with what comes: a length alone costs no memory.
    std::array<char, 16384> part{};
    while (body->size() < bytes) {
        const ssize_t got =
            ::recv(fd, part.data(), std::min(part.size(), bytes - body->size()), MSG_DONTWAIT);
        if (got > 0) {
            body->append(part.data(), static_cast<std::size_t>(got));
            continue;
        }
        if (got == 0 || (errno != EINTR && errno != EAGAIN && errno != EWOULDBLOCK))
            return HeadResult::Closed;
        if (const HeadResult ended = AwaitBytes(fd, stop, deadline); ended != HeadResult::Complete)
            return ended;
    }
    return HeadResult::Complete;
}

HeadResult WaitForBytes(int fd, std::size_t bytes, std::string* seen, const Wakeup& stop,
                        Clock::time_point deadline) {
    seen->assign(bytes, '\0');
    bool anyBytes = false;
    return PeekUntil(fd, seen->data(), seen->size(), stop, deadline, &anyBytes,
                     [bytes](std::size_t got) { return got >= bytes; });
}

bool FinishSending(int fd, const Wakeup& stop) {
    ::shutdown(fd, SHUT_WR);
    const auto deadline = Clock::now() + kLinger;
    std::array<char, 4096> rest{};
    while (WaitFor({.socket = fd, .socketEvents = POLLIN, .stop = &stop}, deadline) == Waited::Ready) {
        if (const auto got = ::recv(fd, rest.data(), rest.size(), MSG_DONTWAIT); got <= 0)
            return got == 0;
    }
    return true;
}

SendResult SendAll(int fd, std::string_view bytes, const Wakeup& stop, std::chrono::milliseconds stall) {
    while (!bytes.empty()) {
        const ssize_t sent = ::send(fd, bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (sent < 0 && errno == EINTR)
            continue;
        if (sent < 0 && errno != EAGAIN && errno != EWOULDBLOCK)
            return SendResult::Broken;
        const Waited waited =
            WaitFor({.socket = fd, .socketEvents = POLLOUT, .stop = &stop}, Clock::now() + stall);
        if (waited == Waited::Stopped)
            return SendResult::Stopped;
        if (waited == Waited::Timeout)
            return SendResult::Stalled;
    }
    return SendResult::Sent;
}

Arrival::Arrival(int fd) noexcept : m_fd(fd), m_before(StateOf(fd).acknowledged) {}

bool Arrival::Await(const Wakeup& stop, std::chrono::milliseconds stall) const {
    std::uint64_t arrived = 0;
    auto deadline = Clock::now() + stall;
    auto pause = kShortestPause;
    for (bool stopped = false;;) {
        const ConnectionState state = StateOf(m_fd);
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
