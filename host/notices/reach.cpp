#include "host/notices/channel.h"

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <exception>
#include <memory>
#include <system_error>
#include <thread>
#include <utility>

#include <netdb.h>
#include <poll.h>
#include <sys/socket.h>

namespace host {
namespace {

constexpr std::chrono::seconds kReachDeadline{5};

struct FoundEnd {
    void operator()(addrinfo* found) const noexcept { ::freeaddrinfo(found); }
};

std::string WhyNotConnected(const addrinfo& address, Clock::time_point deadline) {
    const Descriptor socket(::socket(address.ai_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0));
    if (!socket)
        return std::strerror(errno);
    if (::connect(socket.Get(), address.ai_addr, address.ai_addrlen) == 0)
        return "";
    if (errno != EINPROGRESS)
        return std::strerror(errno);
    if (WaitFor({.socket = socket.Get(), .socketEvents = POLLOUT}, deadline) != Waited::Ready)
        return "no connection comes about";
    int error = 0;
    socklen_t size = sizeof error;
    if (::getsockopt(socket.Get(), SOL_SOCKET, SO_ERROR, &error, &size) != 0)
        error = errno;
    return error == 0 ? "" : std::strerror(error);
}

} // namespace

std::string WhyNotReached(const std::string& server, int port) {
    addrinfo hints{};
    hints.ai_socktype = SOCK_STREAM;
    addrinfo* list = nullptr;
    if (const int code = ::getaddrinfo(server.c_str(), std::to_string(port).c_str(), &hints, &list);
        code != 0)
        return ::gai_strerror(code);
    const std::unique_ptr<addrinfo, FoundEnd> found(list);
    const auto deadline = Clock::now() + kReachDeadline;
    std::string reason = "there is no such server";
    for (const addrinfo* address = found.get(); address != nullptr; address = address->ai_next) {
        reason = WhyNotConnected(*address, deadline);
        if (reason.empty())
            break;
    }
    return reason;
}

struct Errand::State {
    Wakeup done; // behind the result
    std::string result;
};

std::optional<std::string> Errand::Run(std::function<std::string()> work, const Wakeup& stop,
                                       Clock::time_point deadline) {
    if (m_left && !m_left->done.IsSet())
        return std::nullopt;
    try {
        const auto state = std::make_shared<State>();
        std::thread([state, work = std::move(work)]() mutable {
            try {
                state->result = work();
            } catch (const std::exception& error) {
                state->result = error.what();
            }
            work = nullptr; // what it owns goes before anybody hears of the result
            state->done.Signal();
        }).detach();
        m_left = state;
    } catch (const std::system_error& error) { // no thread, or no descriptor
        return error.what();
    }
    (void)WaitFor({.wakeup = &m_left->done, .stop = &stop}, deadline);
    if (!m_left->done.IsSet())
        return std::nullopt;
    return std::move(std::exchange(m_left, nullptr)->result);
}

const Authorities& TrustedAuthorities() {
    const auto named = [](const char* name, const char* usual) {
        const char* const value = std::getenv(name);
        return std::string(value != nullptr && *value != '\0' ? value : usual);
    };
    static const Authorities authorities{named("SSL_CERT_DIR", "/etc/ssl/certs"), named("SSL_CERT_FILE", "")};
    return authorities;
}

} // namespace host
