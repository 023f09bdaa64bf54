// The addresses that this machine has.
#pragma once

#include <string>
#include <vector>

namespace host {

struct InterfaceAddress {
    std::string text;        // numeric, without a zone
    unsigned prefixBits = 0; // of its network
    bool v6 = false;
};

// Lists those of every interface that is up and not the loopback: IPv4 before IPv6, in the system's order.
std::vector<InterfaceAddress> OwnAddresses();

} // namespace host
