#include "host/http/proxy.h"

#include <algorithm>
#include <string>

#include "platform/text.h"

namespace host {
namespace {

using Kind = ProxyPreamble::Kind;

constexpr std::string_view kFirst = "PROXY ";
constexpr std::size_t kLongestFirst = 107; // with its line end
constexpr std::string_view kSecond("\r\n\r\n\0\r\nQUIT\n", 12);
constexpr std::size_t kSecondHead = 16;
// Addresses, and a few fields behind them that nothing here asks for.
constexpr std::size_t kMostBehind = 4096;

ProxyPreamble ReadFirst(std::string_view bytes) {
    const auto end = bytes.find("\r\n");
    if (end == std::string_view::npos)
        return bytes.size() >= kLongestFirst ? ProxyPreamble{Kind::Invalid, 0, {}}
                                             : ProxyPreamble{Kind::Incomplete, bytes.size() + 1, {}};
    ProxyPreamble read{Kind::Complete, end + 2, {}};
    std::string_view line = bytes.substr(kFirst.size(), end - kFirst.size());
    if (line.starts_with("UNKNOWN"))
        return read;
    const bool v6 = line.starts_with("TCP6 ");
    if (!v6 && !line.starts_with("TCP4 "))
        return {Kind::Invalid, 0, {}};
    line.remove_prefix(5);
    read.address = Network::Address(line.substr(0, line.find(' ')));
    if (!read.address || (read.address->size == 16 && !v6) || std::ranges::count(line, ' ') != 3)
        return {Kind::Invalid, 0, {}};
    return read;
}

ProxyPreamble ReadSecond(std::string_view bytes) {
    if (bytes.size() < kSecondHead)
        return {Kind::Incomplete, kSecondHead, {}};
    const auto byte = [&](std::size_t at) { return static_cast<unsigned char>(bytes[at]); };
    const std::size_t behind = byte(14) * 256U + byte(15);
    if (byte(12) >> 4 != 2 || behind > kMostBehind)
        return {Kind::Invalid, 0, {}};
    const std::size_t size = kSecondHead + behind;
    if (bytes.size() < size)
        return {Kind::Incomplete, size, {}};
    ProxyPreamble read{Kind::Complete, size, {}};
    const unsigned command = byte(12) & 15U;
    if (command == 0) // the proxy itself, to see whether anybody is here
        return read;
    const unsigned family = byte(13) >> 4;
    const std::size_t length = family == 1 ? 4 : family == 2 ? 16 : 0;
    if (length == 0) // unspecified, or a socket of the proxy's machine
        return command == 1 ? read : ProxyPreamble{Kind::Invalid, 0, {}};
    if (command != 1 || behind < 2 * length + 4)
        return {Kind::Invalid, 0, {}};
    Network address;
    std::copy_n(bytes.data() + kSecondHead, length, address.bytes.begin());
    address.size = static_cast<unsigned>(length);
    // Through its text, for an IPv4 address within IPv6.
    read.address = Network::Address(address.Text());
    return read;
}

// "192.0.2.1", "2001:db8::1", and with ports "192.0.2.1:80" and "[2001:db8::1]:80".
std::optional<Network> AddressIn(std::string_view text) {
    if (text.starts_with('[')) {
        const auto end = text.find(']');
        return end == std::string_view::npos ? std::nullopt : Network::Address(text.substr(1, end - 1));
    }
    if (std::ranges::count(text, ':') == 1)
        text = text.substr(0, text.find(':'));
    return Network::Address(text);
}

} // namespace

bool TrustedProxies::Add(std::string_view cidr) {
    const auto network = Network::Cidr(cidr);
    if (network)
        m_networks.push_back(*network);
    return network.has_value();
}

bool TrustedProxies::Trusts(const Network& address) const {
    return std::ranges::any_of(m_networks, [&](const Network& network) { return network.Holds(address); });
}

bool TrustedProxies::Trusts(const PeerAddress& peer) const {
    const auto address = m_networks.empty() ? std::nullopt : Network::Address(peer.text);
    return address && Trusts(*address);
}

ProxyPreamble ReadProxyPreamble(std::string_view bytes) {
    for (const std::string_view start : {kFirst, kSecond}) {
        const std::size_t common = std::min(bytes.size(), start.size());
        if (bytes.substr(0, common) != start.substr(0, common))
            continue;
        if (common < start.size())
            return {Kind::Incomplete, common + 1, {}};
        return start == kFirst ? ReadFirst(bytes) : ReadSecond(bytes);
    }
    return {};
}

Forwarded ReadForwarded(const Request& request, const TrustedProxies& proxies) {
    Forwarded read;
    const std::string protocols = request.AllOf("X-Forwarded-Proto");
    read.secure = platform::EqualsIgnoringCase(
        Trimmed(std::string_view(protocols).substr(protocols.rfind(',') + 1)), "https");
    const std::string addresses = request.AllOf("X-Forwarded-For");
    // Each proxy puts whom it got the request from behind what was there.
    for (std::string_view left = addresses; !left.empty();) {
        const auto comma = left.rfind(',');
        const auto address = AddressIn(Trimmed(left.substr(comma + 1)));
        left = comma == std::string_view::npos ? std::string_view() : left.substr(0, comma);
        if (!address) {
            read.valid = false;
            return read;
        }
        read.address = address;
        if (!proxies.Trusts(*address))
            break;
    }
    return read;
}

} // namespace host
