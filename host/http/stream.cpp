#include "host/http/stream.h"

#include <algorithm>
#include <array>
#include <cerrno>

#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include "host/tls/openssl.h"

namespace host {
namespace {

constexpr std::size_t kMostOfRecord = 16384; // RFC 8446, 5.1

} // namespace

Stream::Stream(Descriptor socket) noexcept : m_socket(std::move(socket)) {}

bool Stream::Secure(const TlsContext& context, const Wakeup& stop, Clock::time_point deadline) {
    try {
        m_tls = std::make_unique<TlsSession>(context, m_socket.Get());
    } catch (const TlsError&) {
        return false; // no memory
    }
    for (;;) {
        const ssize_t done = m_tls->Shake();
        if (done != kAgain)
            return done > 0;
        if (WaitFor({.socket = Fd(), .socketEvents = m_tls->Awaits(), .stop = &stop}, deadline) !=
            Waited::Ready)
            return false;
    }
}

ssize_t Stream::Outcome(ssize_t result, short events) noexcept {
    if (result >= 0)
        return result;
    m_awaits = events;
    return errno == EAGAIN || errno == EWOULDBLOCK ? kAgain : kBroken;
}

ssize_t Stream::Read(char* bytes, std::size_t size) noexcept {
    if (!m_ahead.empty()) {
        const std::size_t count = m_ahead.copy(bytes, size);
        m_ahead.erase(0, count);
        return static_cast<ssize_t>(count);
    }
    if (m_tls) {
        const ssize_t got = m_tls->Read(bytes, size);
        m_awaits = m_tls->Awaits();
        return got;
    }
    ssize_t got = 0;
    do
        got = ::recv(Fd(), bytes, size, MSG_DONTWAIT);
    while (got < 0 && errno == EINTR);
    return Outcome(got, POLLIN);
}

ssize_t Stream::Write(std::string_view bytes) noexcept {
    if (m_tls) {
        const ssize_t sent = m_tls->Write(bytes);
        m_awaits = m_tls->Awaits();
        return sent;
    }
    ssize_t sent = 0;
    do
        sent = ::send(Fd(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    while (sent < 0 && errno == EINTR);
    if (sent > 0)
        m_sent += static_cast<std::uint64_t>(sent);
    return Outcome(sent, POLLOUT);
}

ssize_t Stream::Write(std::span<const std::string_view> parts) noexcept {
    return m_tls ? WriteTogether(parts) : WriteGathered(parts);
}

ssize_t Stream::WriteGathered(std::span<const std::string_view> parts) noexcept {
    std::array<iovec, kMostParts> vectors{};
    msghdr message{};
    message.msg_iov = vectors.data();
    for (const std::string_view part : parts.first(std::min(parts.size(), kMostParts))) {
        if (!part.empty())
            vectors[message.msg_iovlen++] = {const_cast<char*>(part.data()), part.size()};
    }
    ssize_t sent = 0;
    do
        sent = ::sendmsg(Fd(), &message, MSG_NOSIGNAL | MSG_DONTWAIT);
    while (sent < 0 && errno == EINTR);
    if (sent > 0)
        m_sent += static_cast<std::uint64_t>(sent);
    return Outcome(sent, POLLOUT);
}

// A large part goes as it is; what is small is put together first, once for each time that it is tried.
ssize_t Stream::WriteTogether(std::span<const std::string_view> parts) noexcept {
    std::array<char, kMostOfRecord> together;
    std::size_t size = 0;
    for (const std::string_view part : parts) {
        if (size == 0 && part.size() >= together.size())
            return Write(part);
        size += part.copy(together.data() + size, together.size() - size);
    }
    return Write({together.data(), size});
}

void Stream::EndSending() noexcept {
    if (m_tls)
        m_tls->SayEnd();
    ::shutdown(Fd(), SHUT_WR);
}

std::uint64_t Stream::SentToSocket() const noexcept {
    return m_tls ? m_tls->SentToSocket() : m_sent;
}

} // namespace host
