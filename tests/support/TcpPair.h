// A real TCP connection over loopback: one end a plain descriptor, the other one for the code under test.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include <algorithm>
#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/scope.h"
#include "platform/socket.h"

namespace support {

using platform::Descriptor;

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
            bytes.remove_prefix(n);
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
            char buffer[4096];
            if (IsSilent(milliseconds))
                break;
            const auto n = ::recv(m_fd.Get(), buffer, std::min(sizeof buffer, count - bytes.size()), 0);
            if (n <= 0)
                break;
            bytes.append(buffer, n);
        }
        return bytes;
    }
    // Up to and with `end`; fewer when the other side closes or says nothing for `milliseconds`.
    std::string ReceiveUntil(std::string_view end, int milliseconds = 10000) {
        std::string bytes;
        while (!bytes.ends_with(end)) {
            const std::string byte = Receive(1, milliseconds);
            if (byte.empty())
                break;
            bytes += byte;
        }
        return bytes;
    }
    // Whether nothing comes within that time, not even an end.
    bool IsSilent(int milliseconds) const {
        pollfd waiting{m_fd.Get(), POLLIN, 0};
        return ::poll(&waiting, 1, milliseconds) <= 0;
    }
    // True when the other side has closed; what it still had to say is thrown away.
    bool IsClosed(int milliseconds = 10000) {
        while (!IsSilent(milliseconds)) {
            char buffer[4096];
            if (::recv(m_fd.Get(), buffer, sizeof buffer, 0) <= 0)
                return true;
        }
        return false;
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

// A TCP socket and an address of loopback for it.
struct Loopback {
    explicit Loopback(std::uint16_t port) {
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    }
    sockaddr* Raw() { return reinterpret_cast<sockaddr*>(&address); }

    sockaddr_in address{};
    Descriptor socket{::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)};
};

// A receive buffer of 0 is the system's own choice.
inline Peer Connect(std::uint16_t port, int receiveBuffer = 0) {
    Loopback to(port);
    if (receiveBuffer > 0)
        ::setsockopt(to.socket.Get(), SOL_SOCKET, SO_RCVBUF, &receiveBuffer, sizeof receiveBuffer);
    Must(::connect(to.socket.Get(), to.Raw(), sizeof to.address) == 0, "connect to loopback");
    return Peer(to.socket.Release());
}

class Listener {
public:
    Listener() : m_at(0) {
        socklen_t size = sizeof m_at.address;
        Must(::bind(m_at.socket.Get(), m_at.Raw(), size) == 0 && ::listen(m_at.socket.Get(), 8) == 0 &&
                 ::getsockname(m_at.socket.Get(), m_at.Raw(), &size) == 0,
             "listen on loopback");
    }
    [[nodiscard]] std::uint16_t Port() const { return ntohs(m_at.address.sin_port); }
    Descriptor Accept() {
        Descriptor accepted(::accept4(m_at.socket.Get(), nullptr, nullptr, SOCK_CLOEXEC));
        Must(bool(accepted), "accept on loopback");
        return accepted;
    }

private:
    Loopback m_at;
};

struct TcpPair {
    Peer far;
    Descriptor near;

    TcpPair() {
        Listener listener;
        far = Connect(listener.Port());
        near = listener.Accept();
    }
    // Hands the near end over to the platform.
    SOCKET Adopt() { return platform::AdoptSocket(near.Release()); }
};

} // namespace support
