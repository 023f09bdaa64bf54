#include "host/http/own_address.h"

#include <algorithm>
#include <array>
#include <memory>
#include <vector>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>

namespace host {
namespace {

struct FreeAddresses {
    void operator()(ifaddrs* list) const noexcept { ::freeifaddrs(list); }
};

// Of every interface that is up and not the loopback: IPv4 before IPv6, in the system's order.
std::vector<std::string> OwnAddresses() {
    ifaddrs* first = nullptr;
    if (::getifaddrs(&first) != 0)
        return {};
    const std::unique_ptr<ifaddrs, FreeAddresses> list(first);
    std::vector<std::string> addresses;
    for (const int family : {AF_INET, AF_INET6}) {
        for (const ifaddrs* entry = first; entry != nullptr; entry = entry->ifa_next) {
            if (entry->ifa_addr == nullptr || entry->ifa_addr->sa_family != family ||
                (entry->ifa_flags & IFF_LOOPBACK) != 0 || (entry->ifa_flags & IFF_UP) == 0)
                continue;
            std::array<char, INET6_ADDRSTRLEN> text{};
            const void* const address =
                family == AF_INET ? static_cast<const void*>(
                                        &reinterpret_cast<const sockaddr_in*>(entry->ifa_addr)->sin_addr)
                                  : &reinterpret_cast<const sockaddr_in6*>(entry->ifa_addr)->sin6_addr;
            if (::inet_ntop(family, address, text.data(), text.size()) != nullptr)
                addresses.emplace_back(text.data());
        }
    }
    return addresses;
}

bool IsEvery(const Endpoint& endpoint) {
    return endpoint.address == "0.0.0.0" || endpoint.address == "::";
}

bool IsV4(std::string_view address) {
    return address.find(':') == std::string_view::npos;
}

} // namespace

std::string AuthorityForOthers(const Endpoint& endpoint) {
    if (endpoint.IsLoopback())
        return {};
    if (!IsEvery(endpoint))
        return endpoint.Text();
    // One of IPv6 may be good for its own link alone, so it is not guessed.
    const auto own = OwnAddresses();
    return own.empty() || !IsV4(own.front()) ? "" : Endpoint{own.front(), endpoint.port}.Text();
}

std::string AuthorityForPhones(const Endpoint& endpoint) {
    if (endpoint.IsLoopback())
        return endpoint.Text();
    const std::string others = AuthorityForOthers(endpoint);
    return !others.empty() ? others : Endpoint{"127.0.0.1", endpoint.port}.Text();
}

bool LeadsTo(std::string_view authority, const Endpoint& endpoint) {
    const auto told = Endpoint::Parse(authority);
    const auto usual = told ? told : Endpoint::Parse(std::string(authority) + ":80");
    if (!usual || usual->port != endpoint.port)
        return false;
    if (!IsEvery(endpoint))
        return usual->address == endpoint.address;
    const auto own = OwnAddresses();
    return std::ranges::find(own, usual->address) != own.end() || (own.empty() && usual->IsLoopback());
}

} // namespace host
