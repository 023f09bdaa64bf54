// Connected pairs of stream sockets, and a way to see that a thread is blocked.
#pragma once

#include <arpa/inet.h>
#include <netinet/in.h>
#include <sys/socket.h>
#include <unistd.h>

#include <chrono>
#include <fstream>
#include <stdexcept>
#include <string>
#include <thread>
#include <utility>

enum class Transport { Local, Tcp };

// Two connected descriptors; the receiver of the pair closes them.
inline std::pair<int, int> MakeConnection(Transport transport = Transport::Local) {
    if (transport == Transport::Local) {
        int ends[2];
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC, 0, ends) != 0)
            throw std::runtime_error("no pair of sockets");
        return {ends[0], ends[1]};
    }
    const int listener = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    sockaddr_in address{};
    address.sin_family = AF_INET;
    address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
    socklen_t length = sizeof address;
    auto* const generic = reinterpret_cast<sockaddr*>(&address);
    const int client = ::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0);
    if (::bind(listener, generic, sizeof address) != 0 || ::listen(listener, 1) != 0 ||
        ::getsockname(listener, generic, &length) != 0 || ::connect(client, generic, length) != 0)
        throw std::runtime_error("no connection on this machine");
    const int server = ::accept(listener, nullptr, nullptr);
    ::close(listener);
    return {server, client};
}

// Waits until the thread of that number sleeps in the system; false after ten seconds.
inline bool WaitUntilBlocked(std::uint32_t threadId) {
    const std::string path = "/proc/self/task/" + std::to_string(threadId) + "/stat";
    for (int n = 0; n < 2000; ++n) {
        std::string line;
        std::getline(std::ifstream(path), line);
        if (const auto name = line.rfind(") "); name != std::string::npos && line[name + 2] == 'S')
            return true;
        std::this_thread::sleep_for(std::chrono::milliseconds(5));
    }
    return false;
}
