#include "host/base/network.h"

#include <algorithm>
#include <charconv>

#include <arpa/inet.h>

namespace host {
namespace {

constexpr std::array<std::uint8_t, 12> kMapped{0, 0, 0, 0, 0, 0, 0, 0, 0, 0, 0xFF, 0xFF};

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

} // namespace host
