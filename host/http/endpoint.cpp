#include "host/http/endpoint.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <charconv>
#include <cstring>
#include <system_error>
#include <vector>

#include <arpa/inet.h>
#include <netinet/in.h>

#include "host/base/start_error.h"
#include "host/http/limits.h"

namespace host {
namespace {

struct SocketAddress {
    sockaddr_storage storage{};
    socklen_t size = 0;
};

std::optional<SocketAddress> ToSocketAddress(const Endpoint& endpoint) {
    SocketAddress result;
    in_addr v4{};
    in6_addr v6{};
    const auto keep = [&](const auto& address) {
        std::memcpy(&result.storage, &address, sizeof address);
        result.size = sizeof address;
        return result;
    };
    const in_port_t port = htons(endpoint.port);
    if (inet_pton(AF_INET, endpoint.address.c_str(), &v4) == 1)
        return keep(sockaddr_in{AF_INET, port, v4, {}});
    if (inet_pton(AF_INET6, endpoint.address.c_str(), &v6) == 1)
        return keep(sockaddr_in6{AF_INET6, port, 0, v6, 0});
    return std::nullopt;
}

std::string SystemText(int error) {
    return std::generic_category().message(error);
}

bool IsEvery(const Endpoint& endpoint) {
    return endpoint.address == "0.0.0.0" || endpoint.address == "::";
}

bool IsV4(std::string_view address) {
    return address.find(':') == std::string_view::npos;
}

} // namespace

std::optional<Endpoint> Endpoint::Parse(std::string_view text) {
    const auto colon = text.rfind(':');
    if (colon == std::string_view::npos)
        return std::nullopt;
    Endpoint endpoint;
    std::string_view address = text.substr(0, colon);
    const std::string_view port = text.substr(colon + 1);
    if (address.size() >= 2 && address.front() == '[' && address.back() == ']')
        address = address.substr(1, address.size() - 2);
    else if (address.find(':') != std::string_view::npos)
        return std::nullopt; // an IPv6 address without its brackets: where does the port begin?
    endpoint.address = address == "localhost" ? "127.0.0.1" : address.empty() ? "0.0.0.0" : address;
    const auto [end, error] = std::from_chars(port.data(), port.data() + port.size(), endpoint.port);
    if (error != std::errc{} || end != port.data() + port.size() || !ToSocketAddress(endpoint))
        return std::nullopt;
    return endpoint;
}

bool Endpoint::IsLoopback() const {
    return address.starts_with("127.") || address == "::1";
}

std::string Endpoint::Text() const {
    const bool v6 = address.find(':') != std::string::npos;
    return (v6 ? "[" + address + "]" : address) + ":" + std::to_string(port);
}

Listener Listen(const Endpoint& endpoint) {
    const auto wanted = ToSocketAddress(endpoint);
    if (!wanted)
        throw StartError("not an address to listen on: " + endpoint.Text());
    Descriptor socket(
        ::socket(wanted->storage.ss_family, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, IPPROTO_TCP));
    if (!socket)
        throw StartError("no socket to listen on: " + SystemText(errno));
    // A host that is started again must not wait for the connections of its last run to be forgotten.
    const int on = 1;
    ::setsockopt(socket.Get(), SOL_SOCKET, SO_REUSEADDR, &on, sizeof on);
    if (::bind(socket.Get(), reinterpret_cast<const sockaddr*>(&wanted->storage), wanted->size) != 0 ||
        ::listen(socket.Get(), kListenBacklog) != 0) {
        const int error = errno;
        if (error == EADDRINUSE)
            throw StartError("port " + std::to_string(endpoint.port) + " is in use (" + endpoint.Text() +
                             "): stop the program that has it, or choose another with --listen ADDR:PORT");
        throw StartError("cannot listen on " + endpoint.Text() + ": " + SystemText(error));
    }
    Listener listener{std::move(socket), endpoint};
    sockaddr_storage bound{};
    socklen_t size = sizeof bound;
    if (::getsockname(listener.socket.Get(), reinterpret_cast<sockaddr*>(&bound), &size) == 0) {
        // The port stands at the same place in both families.
        sockaddr_in address{};
        std::memcpy(&address, &bound, sizeof address);
        listener.endpoint.port = ntohs(address.sin_port);
    }
    return listener;
}

std::string AuthorityForOthers(const Endpoint& endpoint) {
    if (endpoint.IsLoopback())
        return {};
    if (!IsEvery(endpoint))
        return endpoint.Text();
    // One of IPv6 may be good for its own link alone, so it is not guessed.
    const auto own = OwnAddresses();
    return own.empty() || own.front().v6 ? "" : Endpoint{own.front().text, endpoint.port}.Text();
}

std::string AuthorityForPhones(const Endpoint& endpoint) {
    if (endpoint.IsLoopback())
        return endpoint.Text();
    const std::string others = AuthorityForOthers(endpoint);
    return !others.empty() ? others : Endpoint{"127.0.0.1", endpoint.port}.Text();
}

std::vector<std::string> AuthoritiesToOpen(const Endpoint& endpoint) {
    if (!IsEvery(endpoint))
        return {endpoint.Text()};
    constexpr std::size_t kMost = 4;
    std::vector<std::string> places{
        Endpoint{IsV4(endpoint.address) ? "127.0.0.1" : "::1", endpoint.port}.Text()};
    for (const InterfaceAddress& own : OwnAddresses()) {
        if (!own.v6 && places.size() < kMost)
            places.push_back(Endpoint{own.text, endpoint.port}.Text());
    }
    return places;
}

bool LeadsTo(std::string_view authority, const Endpoint& endpoint) {
    const auto told = Endpoint::Parse(authority);
    const auto usual = told ? told : Endpoint::Parse(std::string(authority) + ":80");
    if (!usual || usual->port != endpoint.port)
        return false;
    if (!IsEvery(endpoint))
        return usual->address == endpoint.address;
    const auto own = OwnAddresses();
    return std::ranges::find(own, usual->address, &InterfaceAddress::text) != own.end() ||
           (own.empty() && usual->IsLoopback());
}

PeerAddress AddressOf(const sockaddr_storage& address) {
    std::array<char, INET6_ADDRSTRLEN> text{};
    const void* const bytes =
        address.ss_family == AF_INET
            ? static_cast<const void*>(&reinterpret_cast<const sockaddr_in&>(address).sin_addr)
            : &reinterpret_cast<const sockaddr_in6&>(address).sin6_addr;
    if (::inet_ntop(address.ss_family, bytes, text.data(), text.size()) != nullptr) {
        if (const auto known = Network::Address(text.data()))
            return AddressOf(*known);
    }
    return {"unknown", "unknown"};
}

PeerAddress AddressOf(const Network& address) {
    std::string text = address.Text();
    if (address.size == 4)
        return {text, text};
    return {std::move(text), std::string(reinterpret_cast<const char*>(address.bytes.data()), 8)};
}

void SetReceiveLowWater(int fd, int bytes) noexcept {
    ::setsockopt(fd, SOL_SOCKET, SO_RCVLOWAT, &bytes, sizeof bytes);
}

} // namespace host
