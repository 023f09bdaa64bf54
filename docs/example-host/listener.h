// Plain sockets, as any server has them: connections one at a time until SIGINT or SIGTERM.
#pragma once

#include <csignal>
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <string>

#include <netinet/in.h>
#include <poll.h>
#include <sys/signalfd.h>
#include <sys/socket.h>
#include <unistd.h>

// 0: no limit.
inline void LimitReads(int connection, int seconds) {
    const timeval limit{seconds, 0};
    ::setsockopt(connection, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof limit);
}

class Listener {
public:
    // Before there are threads, so that all have the signals blocked. Port 0 takes a free one.
    explicit Listener(std::uint16_t port) {
        sigset_t ends;
        sigemptyset(&ends);
        sigaddset(&ends, SIGINT);
        sigaddset(&ends, SIGTERM);
        ::sigprocmask(SIG_BLOCK, &ends, nullptr);
        m_ends = ::signalfd(-1, &ends, SFD_CLOEXEC);
        m_socket = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_port = htons(port);
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        socklen_t size = sizeof address;
        auto* const any = reinterpret_cast<sockaddr*>(&address);
        if (::bind(m_socket, any, size) != 0 || ::listen(m_socket, 16) != 0 ||
            ::getsockname(m_socket, any, &size) != 0) {
            std::perror("listening");
            std::exit(1);
        }
        std::setvbuf(stdout, nullptr, _IOLBF, 0);
        std::printf("listening on 127.0.0.1:%d\n", ntohs(address.sin_port));
    }
    Listener(const Listener&) = delete;
    Listener& operator=(const Listener&) = delete;
    ~Listener() {
        ::close(m_socket);
        ::close(m_ends);
    }

    // The next connection, whose reads end after five seconds; -1 when a signal has come.
    [[nodiscard]] int Next() const {
        for (;;) {
            pollfd waits[] = {{m_socket, POLLIN, 0}, {m_ends, POLLIN, 0}};
            if (::poll(waits, 2, -1) < 0 || waits[1].revents != 0)
                return -1;
            const int connection = ::accept4(m_socket, nullptr, nullptr, SOCK_CLOEXEC);
            if (connection < 0)
                continue;
            LimitReads(connection, 5);
            return connection;
        }
    }

private:
    int m_socket = -1;
    int m_ends = -1;
};

// A request's head with its blank line; what came of it when it does not come in time or is too long.
inline std::string ReadHead(int connection) {
    std::string head;
    for (char c = 0; !head.ends_with("\r\n\r\n") && head.size() < 4096 && ::recv(connection, &c, 1, 0) == 1;)
        head += c;
    return head;
}

// Whether so many bytes come in time; they stay unread.
inline bool IsThere(int connection, std::size_t bytes) {
    std::string room(bytes, '\0');
    return ::recv(connection, room.data(), bytes, MSG_PEEK | MSG_WAITALL) == static_cast<ssize_t>(bytes);
}
