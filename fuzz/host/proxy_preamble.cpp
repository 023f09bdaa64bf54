// What a proxy says of its client, in front of a connection and in a request's head: whatever the bytes are,
// no more than was there is taken, and an address is one.

#include "fuzz/Fuzz.h"
#include "host/http/proxy.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
    const std::string_view bytes = AsText(data, size);
    // As the server reads: never more than was asked for.
    for (std::size_t needed = 1; needed <= bytes.size();) {
        const host::ProxyPreamble read = host::ReadProxyPreamble(bytes.substr(0, needed));
        if (read.kind != host::ProxyPreamble::Kind::Incomplete) {
            Require(read.kind != host::ProxyPreamble::Kind::Complete ||
                    (read.size > 0 && read.size <= needed));
            Require(!read.address || host::Network::Address(read.address->Text()).has_value());
            break;
        }
        Require(read.size > needed && read.size <= 8192);
        needed = read.size;
    }
    host::TrustedProxies proxies;
    (void)proxies.Add("10.0.0.0/8");
    (void)proxies.Add(bytes);
    if (auto request = host::ParseRequest(std::string(bytes)).request) {
        const host::Forwarded said = host::ReadForwarded(*request, proxies);
        Require(!said.address || said.address->size == 4 || said.address->size == 16);
    }
    return 0;
}
