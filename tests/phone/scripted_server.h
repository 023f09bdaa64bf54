// The server's side of one phone's connection on a real loopback socket, played by the test step by step.
#pragma once

#include <cstdint>
#include <stdexcept>
#include <string>
#include <string_view>

#include "phone/connection.h"
#include "support/TcpPair.h"

namespace phone::test {

class ScriptedServer {
public:
    ServerAddress Address() const { return {.host = "127.0.0.1", .port = std::to_string(m_listener.Port())}; }

    void Accept() { m_peer = support::Peer(m_listener.Accept().Release()); }
    std::string ReadHead() { return m_peer.ReceiveUntil("\r\n\r\n"); }
    // Exactly `size` bytes. A step that gets less fails instead of hanging.
    std::string Read(std::size_t size) {
        std::string bytes = m_peer.Receive(size);
        support::Must(bytes.size() == size, "the phone sent too little");
        return bytes;
    }
    // A length and as many bytes.
    std::string ReadBlock() {
        const std::string size = Read(2);
        return Read(static_cast<std::uint8_t>(size[0]) | static_cast<std::uint8_t>(size[1]) << 8U);
    }
    // A frame's body; the descriptor is checked.
    std::string ReadFrame() {
        support::Must(Read(1) == "\x04", "not a frame's descriptor");
        return ReadBlock();
    }
    bool IsSilent(int milliseconds) { return m_peer.IsSilent(milliseconds); }
    // The end, with nothing before it; takes a byte when there is one.
    bool AtEnd() { return !m_peer.IsSilent(10000) && m_peer.Receive(1).empty(); }
    void Send(std::string_view bytes) { m_peer.Send(bytes); }
    void Grant(int count) { Send(std::string(1, static_cast<char>(count))); }
    void Close() { m_peer.Close(); }

    // The usual beginning up to the answer.
    void Answer(std::string_view answer) {
        Accept();
        ReadHead();
        Read(131);
        Send(answer);
    }
    // The shared header of a phone that is let in.
    std::string AcceptPhone() {
        Answer(std::string(1, '\0'));
        return ReadBlock();
    }

private:
    support::Listener m_listener;
    support::Peer m_peer;
};

// A file with the shape of a JPEG picture: a frame header, `filler` up to byte 607, then `body`.
inline std::string PictureFile(std::string_view body, char filler = '.') {
    using namespace std::string_view_literals;
    std::string file("\xFF\xD8\xFF\xC0\x00\x11\x08\x00\xF0\x01\x40"sv);
    file.resize(607, filler);
    return file.append(body);
}

} // namespace phone::test
