// Addresses: where the server listens, and whom it talks to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include <sys/socket.h>

#include "host/base/wait.h"

namespace host {

// An address and a port to listen on, as the command line gives it: "127.0.0.1:8080", "[::1]:8080", ":8080"
// (all addresses).
struct Endpoint {
    std::string address;
    std::uint16_t port = 0;

    // Nothing for a text that is no such thing. Names are not looked up, but for "localhost".
    static std::optional<Endpoint> Parse(std::string_view text);
    [[nodiscard]] bool IsLoopback() const;
    [[nodiscard]] std::string Text() const;
};

struct Listener {
    Descriptor socket;
    Endpoint endpoint; // with the port that the system chose, when 0 was asked for
};
// Throws StartError with a clear line.
Listener Listen(const Endpoint& endpoint);

// The address of a peer as text, and what its limits and slow-downs are kept under: the whole IPv4 address,
// or the /64 of an IPv6 one, since one host can have all of that.
struct PeerAddress {
    std::string text;
    std::string key;
};
PeerAddress AddressOf(const sockaddr_storage& address);

// Sets how many bytes make the socket readable. It goes back to 1 before anybody else gets the socket.
void SetReceiveLowWater(int fd, int bytes) noexcept;

} // namespace host
