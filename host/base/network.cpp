#include "host/base/network.h"

#include <algorithm>
#include <bit>
#include <charconv>
#include <memory>
#include <span>
#include <utility>

#include <arpa/inet.h>
#include <ifaddrs.h>
#include <net/if.h>
#include <netinet/in.h>

namespace host {
namespace {

constexpr std::array<std::uint8_t, 12> kMapped{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

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

std::optional<Network> Network::Address(std::string_view text) {
    const std::string copy(text);
    if (copy.find('\0') != std::string::npos)
        return std::nullopt;
    Network made;
    if (::inet_pton(AF_INET, copy.c_str(), made.bytes.data()) == 1) {
        made.size = 4;
    } else if (::inet_pton(AF_INET6, copy.c_str(), made.bytes.data()) == 1) {
        made.size = 16;
        if (std::equal(kMapped.begin(), kMapped.end(), made.bytes.begin())) {
            made.size = 4;
            std::copy(made.bytes.begin() + 12, made.bytes.end(), made.bytes.begin());
            std::fill(made.bytes.begin() + 4, made.bytes.end(), std::uint8_t{0});
        }
    } else {
        return std::nullopt;
    }
    made.bits = 8 * made.size;
    return made;
}

std::optional<Network> Network::Cidr(std::string_view text) {
    const auto slash = text.find('/');
    const auto address = Address(text.substr(0, slash));
    if (!address || slash == std::string_view::npos)
        return address;
    const std::string_view digits = text.substr(slash + 1);
    unsigned bits = 0;
    const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), bits);
    if (error != std::errc{} || end != digits.data() + digits.size() || bits > address->bits)
        return std::nullopt;
    return address->Prefix(bits);
}

Network Network::Prefix(unsigned prefix) const {
    Network made{{}, size, std::min(prefix, bits)};
    for (unsigned i = 0; i < made.bits; i += 8) {
        const unsigned kept = std::min(8U, made.bits - i);
        made.bytes[i / 8] = static_cast<std::uint8_t>(bytes[i / 8] & (0xFF00U >> kept));
    }
    return made;
}

bool Network::Holds(const Network& other) const {
    return other.size == size && other.bits >= bits && other.Prefix(bits).bytes == Prefix(bits).bytes;
}

bool Network::IsLoopback() const {
    static const Network v4 = *Cidr("127.0.0.0/8");
    static const Network v6 = *Cidr("::1/128");
    return v4.Holds(*this) || v6.Holds(*this);
}

std::string Network::Text() const {
    std::array<char, INET6_ADDRSTRLEN> text{};
    (void)::inet_ntop(size == 4 ? AF_INET : AF_INET6, bytes.data(), text.data(), text.size());
    return text.data();
}

std::string Network::WithMask() const {
    Network mask{{}, size, 8 * size};
    mask.bytes.fill(0xFF);
    mask = mask.Prefix(bits);
    std::fill(mask.bytes.begin() + size, mask.bytes.end(), std::uint8_t{0});
    return Prefix(bits).Text() + "/" + mask.Text();
}

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
