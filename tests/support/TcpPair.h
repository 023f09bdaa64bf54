// A real TCP connection over loopback: one end a plain descriptor, the other one for the code under test.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include <cerrno>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>
#include <utility>

#include "platform/socket.h"

namespace support {

class Descriptor {
public:
    Descriptor() = default;
    explicit Descriptor(int fd) : m_fd(fd) {}
    Descriptor(Descriptor&& other) noexcept : m_fd(std::exchange(other.m_fd, -1)) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        std::swap(m_fd, other.m_fd);
        return *this;
    }
    ~Descriptor() { Close(); }
    [[nodiscard]] int Get() const { return m_fd; }
    [[nodiscard]] int Release() { return std::exchange(m_fd, -1); }
    void Close() {
        if (const int fd = std::exchange(m_fd, -1); fd >= 0)
            ::close(fd);
    }

private:
    int m_fd = -1;
};

inline void Must(bool ok, const char* what) {
    if (!ok)
        throw std::runtime_error(what);
}

// The far end of a connection, with waits that end.
class Peer {
public:
    Peer() = default;
    explicit Peer(int fd) : m_fd(fd) {
        const int on = 1;
        ::setsockopt(fd, IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    }

    // False when the other side is gone.
    bool Send(std::string_view bytes) {
        while (!bytes.empty()) {
            const auto n = ::send(m_fd.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL);
            if (n <= 0)
                return false;
            bytes.remove_prefix(static_cast<std::size_t>(n));
        }
        return true;
    }
    // In pieces of `chunk` bytes, each of them a packet of its own as far as the other side can tell.
    bool SendInPieces(std::string_view bytes, std::size_t chunk) {
        for (; !bytes.empty(); bytes.remove_prefix(std::min(chunk, bytes.size()))) {
            if (!Send(bytes.substr(0, chunk)))
                return false;
        }
        return true;
    }
    // Up to `count` bytes; fewer when the other side closes or says nothing for `milliseconds`.
    std::string Receive(std::size_t count, int milliseconds = 10000) {
        std::string bytes;
        while (bytes.size() < count) {
            pollfd waiting{m_fd.Get(), POLLIN, 0};
            char buffer[4096];
            if (::poll(&waiting, 1, milliseconds) <= 0)
                break;
            const auto n = ::recv(m_fd.Get(), buffer, std::min(sizeof buffer, count - bytes.size()), 0);
            if (n <= 0)
                break;
            bytes.append(buffer, static_cast<std::size_t>(n));
        }
        return bytes;
    }
    // True when the other side has closed; what it still had to say is thrown away.
    bool IsClosed(int milliseconds = 10000) {
        for (;;) {
            pollfd waiting{m_fd.Get(), POLLIN, 0};
            char buffer[4096];
            if (::poll(&waiting, 1, milliseconds) <= 0)
                return false;
            if (::recv(m_fd.Get(), buffer, sizeof buffer, 0) <= 0)
                return true;
        }
    }
    void FinishSending() { ::shutdown(m_fd.Get(), SHUT_WR); }
    // Ends the connection with a reset instead of an orderly close.
    void Reset() {
        const linger hard{1, 0};
        ::setsockopt(m_fd.Get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        Close();
    }
    void Close() { m_fd.Close(); }
    [[nodiscard]] int Get() const { return m_fd.Get(); }

private:
    Descriptor m_fd;
};

struct TcpPair {
    Peer far;
    Descriptor near;

    TcpPair() {
        const Descriptor listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* const raw = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof address;
        Must(::bind(listener.Get(), raw, size) == 0 && ::listen(listener.Get(), 1) == 0 &&
                 ::getsockname(listener.Get(), raw, &size) == 0,
             "listen on loopback");
        far = Peer(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0));
        Must(::connect(far.Get(), raw, size) == 0, "connect to loopback");
        near = Descriptor(::accept4(listener.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        Must(near.Get() >= 0, "accept on loopback");
    }
    // Hands the near end over to the platform.
    SOCKET Adopt() { return platform::AdoptSocket(near.Release()); }
};

} // namespace support
