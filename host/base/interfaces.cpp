#include "host/base/interfaces.h"

#include <array>
#include <bit>
#include <cstdint>
#include <memory>
#include <span>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace host {
namespace {

struct FreeAddresses {
    void operator()(ifaddrs* list) const noexcept { ::freeifaddrs(list); }
};

// The bytes of an address, in the order of the network.
std::span<const std::uint8_t> BytesOf(const sockaddr& address) {
    if (address.sa_family == AF_INET)
        return {
            reinterpret_cast<const std::uint8_t*>(&reinterpret_cast<const sockaddr_in&>(address).sin_addr),
            4};
    return {reinterpret_cast<const std::uint8_t*>(&reinterpret_cast<const sockaddr_in6&>(address).sin6_addr),
            16};
}

} // namespace

std::vector<InterfaceAddress> OwnAddresses() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return {};
    const std::unique_ptr<ifaddrs, FreeAddresses> list(first);
    std::vector<InterfaceAddress> addresses;
    for (const int family : {AF_INET, AF_INET6}) {
        for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
            if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != family ||
                (entry->ifa_flags & IFF_LOOPBACK) != 0 || (entry->ifa_flags & IFF_UP) == 0)
                continue;
            const auto bytes = BytesOf(*entry->ifa_addr);
            std::array<char, INET6_ADDRSTRLEN> text{};
            if (::inet_ntop(family, bytes.data(), text.data(), text.size()) == nullptr)
                continue;
            InterfaceAddress address{text.data(), 8 * static_cast<unsigned>(bytes.size()),
                                     family == AF_INET6};
            if (entry->ifa_netmask != nullptr) {
                address.prefixBits = 0;
                // Some systems leave the family out of a mask, so it is read as what the address is.
                const auto mask = reinterpret_cast<const std::uint8_t*>(entry->ifa_netmask) +
                                  (bytes.data() - reinterpret_cast<const std::uint8_t*>(entry->ifa_addr));
                for (std::size_t i = 0; i < bytes.size(); ++i)
                    address.prefixBits += static_cast<unsigned>(std::popcount(mask[i]));
            }
            addresses.push_back(std::move(address));
        }
    }
    return addresses;
}

} // namespace host
