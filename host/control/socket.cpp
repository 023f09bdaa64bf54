#include "host/control/socket.h"

#include <algorithm>
#include <cerrno>
#include <charconv>
#include <system_error>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>
#include <sys/stat.h>
#include <sys/un.h>
#include <unistd.h>

#include "host/base/start_error.h"
#include "host/log/console.h"

namespace host {
namespace {

// How long a host may take to answer: a change of settings goes to disk before.
constexpr timeval kAnswerWithin{60, 0};

std::string LastErrorText() {
    return std::generic_category().message(errno);
}

Descriptor OpenFolder(const std::string& folder) {
    return Descriptor(::open(folder.c_str(), O_PATH | O_DIRECTORY | O_CLOEXEC));
}

// The socket's address by the open folder, however long its path is: an address has room for 107 bytes.
sockaddr_un ControlAddress(const Descriptor& folder) {
    sockaddr_un address{};
    address.sun_family = AF_UNIX;
    const std::string path =
        "/proc/self/fd/" + std::to_string(folder.Get()) + "/" + std::string(kControlSocket);
    std::copy_n(path.data(), std::min(path.size(), sizeof address.sun_path - 1), address.sun_path);
    return address;
}

// The folder's owner is the one that a service runs as, also while root has started the host by hand.
bool MayControl(const Descriptor& connection, const Descriptor& folder) {
    ucred peer{};
    socklen_t size = sizeof peer;
    struct stat info {};
    return ::getsockopt(connection.Get(), SOL_SOCKET, SO_PEERCRED, &peer, &size) == 0 &&
           (peer.uid == 0 || peer.uid == ::geteuid() ||
            (::fstat(folder.Get(), &info) == 0 && peer.uid == info.st_uid));
}

} // namespace

ControlSocket::ControlSocket(const std::string& folder, Serve serve, const Wakeup& stop)
    : m_serve(std::move(serve)), m_stop(stop), m_folder(OpenFolder(folder)),
      m_socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0)) {
    const sockaddr_un address = ControlAddress(m_folder);
    (void)::unlinkat(m_folder.Get(), kControlSocket.data(), 0);
    struct stat owner {};
    // The mode that the socket's file is made with, so that there is no moment with another one.
    if (!m_folder || !m_socket || ::fchmod(m_socket.Get(), 0600) != 0 ||
        ::bind(m_socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0 ||
        ::listen(m_socket.Get(), 8) != 0)
        throw StartError("cannot make " + folder + "/" + std::string(kControlSocket) + ": " +
                         LastErrorText());
    if (::geteuid() == 0 && ::fstat(m_folder.Get(), &owner) == 0)
        (void)::fchownat(m_folder.Get(), kControlSocket.data(), owner.st_uid, owner.st_gid,
                         AT_SYMLINK_NOFOLLOW);
    m_acceptor = std::thread([this] { Accept(); });
}

ControlSocket::~ControlSocket() {
    m_acceptor.join();
    (void)::unlinkat(m_folder.Get(), kControlSocket.data(), 0);
}

void ControlSocket::Accept() {
    for (;;) {
        const Waited waited = WaitFor({.socket = m_socket.Get(), .socketEvents = POLLIN, .stop = &m_stop},
                                      Clock::now() + std::chrono::minutes(1));
        if (waited == Waited::Stopped)
            return;
        if (waited != Waited::Ready)
            continue;
        Descriptor connection(::accept4(m_socket.Get(), nullptr, nullptr, SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (connection && MayControl(connection, m_folder))
            m_serve(std::move(connection));
        else if (!connection && errno != EAGAIN)
            (void)WaitFor({.stop = &m_stop}, Clock::now() + std::chrono::milliseconds(100));
    }
}

std::optional<ControlReply> AskHost(const std::string& folder, std::string_view method,
                                    std::string_view target, std::string_view body) {
    const Descriptor opened = OpenFolder(folder);
    const Descriptor socket(::socket(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0));
    if (!opened || !socket)
        return std::nullopt;
    const sockaddr_un address = ControlAddress(opened);
    if (::connect(socket.Get(), reinterpret_cast<const sockaddr*>(&address), sizeof address) != 0) {
        if (errno == ENOENT || errno == ECONNREFUSED)
            return std::nullopt;
        throw StartError("the host on " + folder + " cannot be talked to: " + LastErrorText());
    }
    (void)::setsockopt(socket.Get(), SOL_SOCKET, SO_RCVTIMEO, &kAnswerWithin, sizeof kAnswerWithin);
    std::string request = std::string(method) + ' ' + std::string(target) +
                          " HTTP/1.1\r\nHost: localhost\r\nConnection: close\r\n";
    if (!body.empty())
        request +=
            "Content-Type: application/json\r\nContent-Length: " + std::to_string(body.size()) + "\r\n";
    request.append("\r\n").append(body);
    for (std::string_view left = request; !left.empty();) {
        const ssize_t sent = ::send(socket.Get(), left.data(), left.size(), MSG_NOSIGNAL);
        if (sent <= 0)
            break; // what it has answered meanwhile tells more
        left.remove_prefix(static_cast<std::size_t>(sent));
    }
    std::string answer;
    char part[4096];
    for (ssize_t got = 0; (got = ::recv(socket.Get(), part, sizeof part, 0)) > 0;)
        answer.append(part, static_cast<std::size_t>(got));
    // The host's own answers need no more reading than that: they come with the connection's end behind them.
    constexpr std::string_view kStart = "HTTP/1.1 ";
    const auto end = answer.find("\r\n\r\n");
    ControlReply reply;
    if (answer.starts_with(kStart) && end != std::string::npos)
        (void)std::from_chars(answer.data() + kStart.size(), answer.data() + kStart.size() + 3, reply.status);
    if (reply.status == 0)
        throw StartError("the host on " + folder + " gives no answer: it is for its own user and for root");
    reply.body = answer.substr(end + 4);
    return reply;
}

} // namespace host
