#include "phone/connection.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstdint>
#include <memory>
#include <system_error>
#include <utility>

#include <netdb.h>
#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/uio.h>

#include "platform/text.h"

namespace phone {
namespace {

// RFC 3986, 2.1: every byte that is not unreserved becomes %XX.
std::string PercentEncode(std::string_view text) {
    static constexpr std::string_view kPlain =
        "ABCDEFGHIJKLMNOPQRSTUVWXYZabcdefghijklmnopqrstuvwxyz0123456789-._~";
    static constexpr std::string_view kHex = "0123456789ABCDEF";
    std::string encoded;
    for (const char c : text) {
        if (kPlain.find(c) != std::string_view::npos) {
            encoded += c;
        } else {
            const auto byte = static_cast<std::uint8_t>(c);
            encoded += {'%', kHex[byte >> 4U], kHex[byte & 15U]};
        }
    }
    return encoded;
}

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
        platform::Descriptor socket(::socket(
            address->ai_family, address->ai_socktype | SOCK_NONBLOCK | SOCK_CLOEXEC, address->ai_protocol));
        if (!socket) {
            error = errno;
            continue;
        }
        const int descriptor = socket.Get();
        error = ::connect(descriptor, address->ai_addr, address->ai_addrlen) == 0 ? 0 : errno;
        if (error == EINPROGRESS) {
            error = AwaitConnected(descriptor, stop, limit);
        }
        if (error == 0) {
            // A frame's last bytes are not to wait for the acknowledgement of its first.
            const int on = 1;
            ::setsockopt(descriptor, IPPROTO_TCP, TCP_NODELAY, &on, sizeof(on));
            return {std::move(socket), stop};
        }
        if (error == ECANCELED) {
            break;
        }
    }
    throw ConnectionError("cannot connect to " + server.Text() + ": " + ErrorText(error));
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
        const ssize_t sent = ::sendmsg(m_socket.Get(), &message, MSG_NOSIGNAL);
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
        pollfd entry{.fd = m_socket.Get(), .events = POLLOUT, .revents = 0};
        ::poll(&entry, 1, 200);
    }
}

WaitResult Connection::WaitToReceive(Clock::time_point due) {
    for (;;) {
        std::array<pollfd, 2> entries{{{.fd = m_socket.Get(), .events = POLLIN, .revents = 0},
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
        const ssize_t count = ::recv(m_socket.Get(), bytes.data(), bytes.size(), 0);
        if (count >= 0) {
            bytes.resize(static_cast<std::size_t>(count));
            return bytes;
        }
        if (errno != EINTR) {
            throw ConnectionError("the server closed the connection: " + ErrorText(errno));
        }
    }
}

std::string Connection::Await(std::size_t size, Clock::time_point due, const std::string& silence) {
    switch (WaitToReceive(due)) {
    case WaitResult::Stopped:
        throw Ended(End::Stopped, "stopped");
    case WaitResult::Due:
        throw ConnectionError(silence);
    case WaitResult::Ready:
        break;
    }
    return Receive(size);
}

void Connection::EndSending() {
    ::shutdown(m_socket.Get(), SHUT_WR);
    m_stop = -1;
}

std::string OpeningHead(std::string_view method, const ServerAddress& server, std::string_view name,
                        std::string_view login, std::string_view password, std::string_view parameters) {
    std::string head(method);
    head += ' ';
    head += kVideoResource;
    head += '/';
    head += PercentEncode(name);
    if (!parameters.empty()) {
        head += '?';
        head += parameters;
    }
    return head + " HTTP/1.1\r\nHost: " + server.Text() + "\r\n" + Credentials(login, password) + "\r\n";
}

std::string Credentials(std::string_view login, std::string_view password) {
    return "Authorization: Basic " + platform::Base64(std::string(login) + ":" + std::string(password)) +
           "\r\n";
}

Ended HttpRefusal(std::string statusLine) {
    statusLine.resize(std::min(statusLine.find_first_of("\r\n"), statusLine.size()));
    // Control characters would reach the terminal.
    std::ranges::replace_if(
        statusLine, [](unsigned char c) { return c < 0x20 || c > 0x7E; }, '?');
    // Behind "HTTP/1.1 ".
    const std::string status = statusLine.substr(std::min<std::size_t>(statusLine.size(), 9), 3);
    const bool busy = status == "429" || status == "503";
    return {busy ? End::Lost : End::Denied,
            (status == "401" ? "denied: wrong login or password (" : "denied: the web server answered (") +
                statusLine + ")"};
}

Ended NoAnswer(const Report& report, const std::string& mayBe) {
    const std::string closed = "the server closed the connection without an answer";
    return report.everTaken ? Ended{End::Lost, closed}
                            : Ended{End::Denied, "denied: " + closed + "; it may " + mayBe};
}

} // namespace phone
