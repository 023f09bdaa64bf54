// The server's side of one phone's connection on a real loopback socket, played by the test step by step.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include <arpa/inet.h>
#include <netinet/in.h>
#include <poll.h>
#include <sys/socket.h>
#include <unistd.h>

#include "host/phone/connection.h"

namespace host::phone::test {

class ScriptedServer {
public:
    ScriptedServer() : m_listener(::socket(AF_INET, SOCK_STREAM | SOCK_CLOEXEC, 0)) {
        sockaddr_in address{};
        address.sin_family = AF_INET;
        address.sin_addr.s_addr = htonl(INADDR_LOOPBACK);
        auto* general = reinterpret_cast<sockaddr*>(&address);
        socklen_t size = sizeof(address);
        if (::bind(m_listener, general, size) != 0 || ::listen(m_listener, 8) != 0 ||
            ::getsockname(m_listener, general, &size) != 0) {
            throw std::runtime_error("no listening socket");
        }
        m_port = ntohs(address.sin_port);
    }
    ScriptedServer(const ScriptedServer&) = delete;
    ScriptedServer& operator=(const ScriptedServer&) = delete;
    ~ScriptedServer() {
        Close();
        ::close(m_listener);
    }

    ServerAddress Address() const { return {.host = "127.0.0.1", .port = std::to_string(m_port)}; }

    void Accept() {
        m_peer = ::accept4(m_listener, nullptr, nullptr, SOCK_CLOEXEC);
        // A step that gets nothing fails instead of hanging.
        const timeval limit{.tv_sec = 10, .tv_usec = 0};
        ::setsockopt(m_peer, SOL_SOCKET, SO_RCVTIMEO, &limit, sizeof(limit));
    }
    // Up to the blank line.
    std::string ReadHead() {
        std::string head;
        while (!head.ends_with("\r\n\r\n")) {
            head += Read(1);
        }
        return head;
    }
    // Exactly `size` bytes.
    std::string Read(std::size_t size) {
        std::string bytes(size, '\0');
        for (std::size_t got = 0; got < size;) {
            const ssize_t count = ::recv(m_peer, bytes.data() + got, size - got, 0);
            if (count <= 0) {
                throw std::runtime_error("the phone sent too little");
            }
            got += static_cast<std::size_t>(count);
        }
        return bytes;
    }
    // A length and as many bytes.
    std::string ReadBlock() {
        const std::string size = Read(2);
        return Read(static_cast<std::uint8_t>(size[0]) |
                    static_cast<std::size_t>(static_cast<std::uint8_t>(size[1])) << 8U);
    }
    // A frame's body; the descriptor is checked.
    std::string ReadFrame() {
        if (Read(1) != "\x04") {
            throw std::runtime_error("not a frame's descriptor");
        }
        return ReadBlock();
    }
    bool IsSilent(int milliseconds) {
        pollfd entry{.fd = m_peer, .events = POLLIN, .revents = 0};
        return ::poll(&entry, 1, milliseconds) == 0;
    }
    bool AtEnd() {
        char byte = 0;
        return ::recv(m_peer, &byte, 1, 0) == 0;
    }
    void Send(std::string_view bytes) { ::send(m_peer, bytes.data(), bytes.size(), MSG_NOSIGNAL); }
    void Grant(int count) { Send(std::string(1, static_cast<char>(count))); }
    void Close() {
        if (m_peer >= 0) {
            ::close(m_peer);
        }
        m_peer = -1;
    }

    // The usual beginning, up to and with the shared header, which is returned.
    std::string AcceptPhone() {
        Accept();
        ReadHead();
        Read(131);
        Send(std::string(1, '\0'));
        return ReadBlock();
    }

private:
    int m_listener;
    int m_peer = -1;
    std::uint16_t m_port = 0;
};

// A file with the shape of a JPEG picture: a frame header, `filler` up to byte 607, then `body`.
inline std::string PictureFile(std::string_view body, char filler = '.') {
    using namespace std::string_view_literals;
    std::string file("\xFF\xD8\xFF\xC0\x00\x11\x08\x00\xF0\x01\x40"sv);
    file.resize(607, filler);
    return file.append(body);
}

} // namespace host::phone::test
