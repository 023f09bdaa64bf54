// What a proxy in front of this server says of whom it speaks for. Nobody but a trusted one is listened to.
#pragma once

#include <cstddef>
#include <optional>
#include <string_view>
#include <vector>

#include "host/base/network.h"
#include "host/http/endpoint.h"
#include "host/http/request.h"

namespace host {

class TrustedProxies {
public:
    // False for what is no CIDR.
    bool Add(std::string_view cidr);
    [[nodiscard]] bool Trusts(const Network& address) const;
    [[nodiscard]] bool Trusts(const PeerAddress& peer) const;

private:
    std::vector<Network> m_networks;
};

// What stands before the first byte of a connection where a proxy speaks the PROXY protocol, version 1 or 2
// (HAProxy's document of that name).
struct ProxyPreamble {
    enum class Kind {
        Absent,     // the bytes begin something else
        Incomplete, // so far; `size` bytes are needed to go on
        Invalid,
        Complete // in the first `size` bytes
    };
    Kind kind = Kind::Absent;
    std::size_t size = 0;
    std::optional<Network> address; // of the client; nothing where the proxy speaks for itself
};
// Reads the first bytes of a connection, at least one.
ProxyPreamble ReadProxyPreamble(std::string_view bytes);

// The sender of a request that came from a trusted proxy, of the header fields X-Forwarded-For (the rightmost
// address that is no proxy's) and X-Forwarded-Proto.
struct Forwarded {
    bool valid = true; // false: what should be an address is none
    std::optional<Network> address;
    bool secure = false;
};
Forwarded ReadForwarded(const Request& request, const TrustedProxies& proxies);

} // namespace host
