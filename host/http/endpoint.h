// Addresses: where the server listens, under which ones it is reached, and whom it talks to.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include <sys/socket.h>

#include "host/base/network.h"
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

// --- Where an endpoint is reached, as "ADDR:PORT" ---

// From other machines: an address of this machine's in place of "all of them". Empty where none reaches it.
[[nodiscard]] std::string AuthorityForOthers(const Endpoint& endpoint);

// For phones: the same; where others do not reach the server, an address that only this machine has.
[[nodiscard]] std::string AuthorityForPhones(const Endpoint& endpoint);

// For a person at a browser: the address itself, or where that is "all of them", the loopback and behind it a
// few of this machine's, for others. At least one.
[[nodiscard]] std::vector<std::string> AuthoritiesToOpen(const Endpoint& endpoint);

// Whether an authority ("HOST" or "HOST:PORT", 80 being the usual one) is an address of this server. A name
// or a router's address may lead here as well; that cannot be seen from here, and counts as false.
[[nodiscard]] bool LeadsTo(std::string_view authority, const Endpoint& endpoint);

// --- Connections ---

// The address of a peer as text, and what its limits and slow-downs are kept under: the whole IPv4 address,
// or the /64 of an IPv6 one, since one host can have all of that.
struct PeerAddress {
    std::string text;
    std::string key;
    bool owner = false; // of the data folder: a program of its user, or of root, over the control socket
};
PeerAddress AddressOf(const sockaddr_storage& address);
PeerAddress AddressOf(const Network& address);

// Sets how many bytes make the socket readable. It goes back to 1 before anybody else gets the socket.
void SetReceiveLowWater(int fd, int bytes) noexcept;

} // namespace host
