// Addresses and networks of the Internet, as numbers, and those that this machine has.
#pragma once

#include <array>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

namespace host {

// An address with all its bits, or a network with those of its prefix.
struct Network {
    std::array<std::uint8_t, 16> bytes{};
    unsigned size = 0; // of the address: 4 or 16 bytes
    unsigned bits = 0; // of the prefix

    // A numeric address; an IPv4 one within IPv6 ("::ffff:192.0.2.1") is that one. Nothing for other texts.
    static std::optional<Network> Address(std::string_view text);
    // "192.0.2.0/24", "2001:db8::/32", or an address. Bits behind the prefix do not count.
    static std::optional<Network> Cidr(std::string_view text);

    // Its first `prefix` bits, or fewer where it has fewer.
    [[nodiscard]] Network Prefix(unsigned prefix) const;
    [[nodiscard]] bool Holds(const Network& other) const;
    [[nodiscard]] bool IsLoopback() const;
    [[nodiscard]] std::string Text() const;     // of the address
    [[nodiscard]] std::string WithMask() const; // "192.0.2.0/255.255.255.0"
};

struct InterfaceAddress {
    std::string text;        // numeric, without a zone
    unsigned prefixBits = 0; // of its network
    bool v6 = false;
};

// Lists those of every interface that is up and not the loopback: IPv4 before IPv6, in the system's order.
std::vector<InterfaceAddress> OwnAddresses();

} // namespace host
