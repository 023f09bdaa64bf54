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

// Complete when the socket is ready, or the peer has gone.
HeadResult Await(int fd, short events, const Wakeup& stop, Clock::time_point deadline) {
    const Waited waited = WaitFor({.socket = fd, .socketEvents = events, .stop = &stop}, deadline);
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
        if (const HeadResult ended = Await(fd, POLLIN, stop, deadline); ended != HeadResult::Complete)
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

namespace {

Head ReadClearHead(int fd, const Wakeup& stop, Clock::time_point deadline) {
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

// Reads what comes until `enough(bytes)`, at most `most` of them.
template <class Enough>
HeadResult ReadUntil(Stream& stream, std::string* bytes, std::size_t most, const Wakeup& stop,
                     Clock::time_point deadline, Enough enough) {
    // Grows with what comes: a length alone costs no memory.
    std::array<char, 16384> part{};
    while (!enough(*bytes)) {
        if (bytes->size() >= most)
            return HeadResult::TooLarge;
        const ssize_t got = stream.Read(part.data(), std::min(part.size(), most - bytes->size()));
        if (got > 0) {
            bytes->append(part.data(), static_cast<std::size_t>(got));
            continue;
        }
        if (got != Stream::kAgain)
            return HeadResult::Closed;
        if (const HeadResult waited = Await(stream.Fd(), stream.Awaits(), stop, deadline);
            waited != HeadResult::Complete)
            return waited;
    }
    return HeadResult::Complete;
}

} // namespace

Head ReadHead(Stream& stream, const Wakeup& stop, Clock::time_point deadline) {
    if (!stream.IsSecure())
        return ReadClearHead(stream.Fd(), stop, deadline);
    Head head;
    std::size_t size = 0;
    head.result = ReadUntil(stream, &head.text, kMaxHeadBytes, stop, deadline, [&](const std::string& bytes) {
        size = FindHeadEnd(bytes);
        return size != 0;
    });
    head.anyBytes = !head.text.empty();
    if (size < head.text.size())
        stream.PutBack(std::string_view(head.text).substr(size));
    head.text.resize(size);
    return head;
}

HeadResult ReadBody(Stream& stream, std::size_t bytes, std::string* body, const Wakeup& stop,
                    Clock::time_point deadline) {
    return ReadUntil(stream, body, bytes, stop, deadline,
                     [bytes](const std::string& read) { return read.size() >= bytes; });
}

HeadResult WaitForBytes(int fd, std::size_t bytes, std::string* seen, const Wakeup& stop,
                        Clock::time_point deadline) {
    seen->assign(bytes, '\0');
    bool anyBytes = false;
    return PeekUntil(fd, seen->data(), seen->size(), stop, deadline, &anyBytes,
                     [bytes](std::size_t got) { return got >= bytes; });
}

bool FinishSending(Stream& stream, const Wakeup& stop) {
    stream.EndSending();
    const auto deadline = Clock::now() + kLinger;
    std::array<char, 4096> rest{};
    while (WaitFor({.socket = stream.Fd(), .socketEvents = POLLIN, .stop = &stop}, deadline) ==
           Waited::Ready) {
        if (const auto got = ::recv(stream.Fd(), rest.data(), rest.size(), MSG_DONTWAIT); got <= 0)
            return got == 0;
    }
    return true;
}

SendResult SendAll(Stream& stream, std::string_view bytes, const Wakeup& stop,
                   std::chrono::milliseconds stall) {
    while (!bytes.empty()) {
        const ssize_t sent = stream.Write(bytes);
        if (sent > 0) {
            bytes.remove_prefix(static_cast<std::size_t>(sent));
            continue;
        }
        if (sent != Stream::kAgain)
            return SendResult::Broken;
        const HeadResult waited = Await(stream.Fd(), stream.Awaits(), stop, Clock::now() + stall);
        if (waited == HeadResult::Stopped)
            return SendResult::Stopped;
        if (waited == HeadResult::Timeout)
            return SendResult::Stalled;
    }
    return SendResult::Sent;
}

Arrival::Arrival(const Stream& stream) noexcept : m_before(StateOf(stream.Fd()).acknowledged) {}

bool Arrival::Await(const Stream& stream, const Wakeup& stop, std::chrono::milliseconds stall) const {
    const std::uint64_t all = m_before + stream.SentToSocket();
    std::uint64_t arrived = 0;
    auto deadline = Clock::now() + stall;
    auto pause = kShortestPause;
    for (bool stopped = false;;) {
        const ConnectionState state = StateOf(stream.Fd());
        if (state.acknowledged >= all)
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
