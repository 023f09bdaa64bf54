#include "phone/connection.h"

#include <array>
#include <cerrno>
#include <memory>
#include <system_error>
#include <utility>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>
#include <unistd.h>

namespace phone {
namespace {

std::string ErrorText(int code) {
    return std::generic_category().message(code);
}

int MillisecondsUntil(Clock::time_point due) {
    // Rounded up: a wait that ends a part of a millisecond early would turn into a busy loop.
    const auto left = std::chrono::ceil<std::chrono::milliseconds>(due - Clock::now()).count();
    if (left <= 0) {
        return 0;
    }
    constexpr long long kLongest = 60'000; // the caller's loop comes back for the rest
    return static_cast<int>(left < kLongest ? left : kLongest);
}

bool IsReadable(int descriptor) {
    pollfd entry{.fd = descriptor, .events = POLLIN, .revents = 0};
    return ::poll(&entry, 1, 0) > 0 && entry.revents != 0;
}

struct AddressListDeleter {
    void operator()(addrinfo* list) const { ::freeaddrinfo(list); }
};
using AddressList = std::unique_ptr<addrinfo, AddressListDeleter>;

AddressList Resolve(const ServerAddress& server) {
    addrinfo hints{};
    hints.ai_family = AF_UNSPEC;
    hints.ai_socktype = SOCK_STREAM;
    hints.ai_flags = AI_NUMERICSERV;
    addrinfo* list = nullptr;
    const int result = ::getaddrinfo(server.host.c_str(), server.port.c_str(), &hints, &list);
    if (result != 0) {
        throw ConnectionError("no address for " + server.host + ": " +
                              (result == EAI_SYSTEM ? ErrorText(errno) : ::gai_strerror(result)));
    }
    return AddressList(list);
}

// The result of a connection attempt under way: 0, or the system's error.
int AwaitConnected(int descriptor, int stop, Clock::time_point limit) {
    for (;;) {
        std::array<pollfd, 2> entries{{{.fd = descriptor, .events = POLLOUT, .revents = 0},
                                       {.fd = stop, .events = POLLIN, .revents = 0}}};
        const int count = ::poll(entries.data(), entries.size(), MillisecondsUntil(limit));
        if (count < 0 && errno != EINTR) {
            return errno;
        }
        if (count > 0 && entries[1].revents != 0) {
            return ECANCELED;
        }
        if (count > 0) {
            int error = 0;
            socklen_t size = sizeof(error);
            return ::getsockopt(descriptor, SOL_SOCKET, SO_ERROR, &error, &size) == 0 ? error : errno;
        }
        if (Clock::now() >= limit) {
            return ETIMEDOUT;
        }
    }
}

} // namespace

std::string ServerAddress::Text() const {
    const bool literal = host.find(':') != std::string::npos;
    return (literal ? "[" + host + "]" : host) + ":" + port;
}

Connection Connection::Open(const ServerAddress& server, int stop) {
    const AddressList list = Resolve(server);
    const auto limit = Clock::now() + kConnectLimit;
    int error = EADDRNOTAVAIL;
    for (const addrinfo* address = list.get(); address != nullptr; address = address->ai_next) {
        const int descriptor = ::socket(
            address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address->ai_protocol);
        if (descriptor < 0) {
            error = errno;
            continue;
        }
        Connection connection(descriptor, stop);
        error = ::connect(descriptor, address->ai_addr, address->ai_addrlen) == 0 ? 0 : errno;
        if (error == EINPROGRESS) {
            error = AwaitConnected(descriptor, stop, limit);
        }
        if (error == 0) {
            // A frame's last bytes are not to wait for the acknowledgement of its first.
            const int on = 1;
            ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
            return connection;
        }
        if (error == ECANCELED) {
            break;
        }
    }
    throw ConnectionError("cannot connect to " + server.Text() + ": " + ErrorText(error));
}

Connection::Connection(Connection&& other) noexcept
    : m_descriptor(std::exchange(other.m_descriptor, -1)), m_stop(other.m_stop) {}

Connection::~Connection() {
    if (m_descriptor >= 0) {
        ::close(m_descriptor);
    }
}

void Connection::Send(std::string_view first, std::string_view second) {
    auto lastProgress = Clock::now();
    while (!first.empty() || !second.empty()) {
        // The system only reads from what the vectors point to.
        std::array<iovec, 2> pieces{{{const_cast<char*>(first.data()), first.size()},
                                     {const_cast<char*>(second.data()), second.size()}}};
        msghdr message{};
        message.msg_iov = pieces.data();
        message.msg_iovlen = pieces.size();
        const ssize_t sent = ::sendmsg(m_descriptor, &message, MSG_NOSIGNAL);
        if (sent >= 0) {
            const auto count = static_cast<std::size_t>(sent);
            const std::size_t fromFirst = count < first.size() ? count : first.size();
            first.remove_prefix(fromFirst);
            second.remove_prefix(count - fromFirst);
            lastProgress = Clock::now();
            continue;
        }
        if (errno == EINTR) {
            continue;
        }
        if (errno != EAGAIN && errno != EWOULDBLOCK) {
            throw ConnectionError("the server closed the connection: " + ErrorText(errno));
        }
        const auto limit = lastProgress + (IsReadable(m_stop) ? kSendLimitStopped : kSendLimit);
        if (Clock::now() >= limit) {
            throw ConnectionError("the server takes no more bytes");
        }
        // Short turns, so that a stop during the wait shortens it.
        pollfd entry{.fd = m_descriptor, .events = POLLOUT, .revents = 0};
        ::poll(&entry, 1, 200);
    }
}

WaitResult Connection::WaitToReceive(Clock::time_point due) {
    for (;;) {
        std::array<pollfd, 2> entries{{{.fd = m_descriptor, .events = POLLIN, .revents = 0},
                                       {.fd = m_stop, .events = POLLIN, .revents = 0}}};
        const int count = ::poll(entries.data(), entries.size(), MillisecondsUntil(due));
        if (count < 0 && errno != EINTR) {
            throw ConnectionError("cannot wait for the server: " + ErrorText(errno));
        }
        if (count > 0 && entries[1].revents != 0) {
            return WaitResult::Stopped;
        }
        if (count > 0) {
            return WaitResult::Ready;
        }
        if (Clock::now() >= due) {
            return WaitResult::Due;
        }
    }
}

std::string Connection::Receive(std::size_t size) {
    std::string bytes(size, '\0');
    for (;;) {
        const ssize_t count = ::recv(m_descriptor, bytes.data(), bytes.size(), 0);
        if (count >= 0) {
            bytes.resize(static_cast<std::size_t>(count));
            return bytes;
        }
        if (errno != EINTR) {
            throw ConnectionError("the server closed the connection: " + ErrorText(errno));
        }
    }
}

void Connection::EndSending() {
    ::shutdown(m_descriptor, SHUT_WR);
    m_stop = -1;
}

} // namespace phone
