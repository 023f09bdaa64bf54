// An authority of one server's own, and the server's certificate.
//
// Who trusts the authority trusts it for what its name constraints permit and for nothing else: a stolen key
// is no key to anybody's bank. One name outside of them spoils a whole certificate, so names are chosen first
// (TlsScope) and both are made from the same choice.
#pragma once

#include <string>
#include <vector>

#include "host/base/network.h"
#include "host/tls/context.h"

namespace host {

// The names and addresses that a server is reached under, and what an authority for them permits.
struct TlsScope {
    std::vector<std::string> names;     // in lower case
    std::vector<std::string> addresses; // numeric
    std::vector<std::string> networks;  // "ADDRESS/MASK"
    friend bool operator==(const TlsScope&, const TlsScope&) = default;

    // localhost and loopback; the full names of this machine, and those of the form NAME.local; addresses in
    // private networks, with these; the host that phones are told ("HOST" or "HOST:PORT"; may be empty). A
    // name of one part, or a machine's that is a domain by itself, is left out: permitting it would permit
    // all names below it.
    static TlsScope Of(const std::vector<std::string>& machineNames,
                       const std::vector<InterfaceAddress>& interfaces, std::string_view toldHost);
    // Of one of several hosts with one authority: what that permits is the same whichever of them makes it,
    // so names of a machine are left out, and all private networks are in. `toldHosts` are those of all.
    static TlsScope OfOneOfMany(const std::vector<InterfaceAddress>& interfaces,
                                const std::vector<std::string>& toldHosts);
};

// The names of this machine: what it is called, and the full name that the resolver knows. May ask DNS.
std::vector<std::string> MachineNames();

// P-256, good for ten years and for servers alone, with critical name constraints. Throws TlsError, as all of
// these do.
TlsPair MakeAuthority(const TlsScope& scope, std::string_view machine);
// Good for 396 days.
TlsPair MakeCertificate(const TlsPair& authority, const TlsScope& scope);

// What is wrong with a certificate of the authority for these names, in a few words: it is not signed by it,
// is not good or not for as long any more as one that is to be renewed in time, or is one for others. Empty
// when it is in order.
std::string FaultOf(const TlsPair& authority, const TlsPair& server, const TlsScope& scope);
// Whether an authority can sign a certificate that is good for its whole time.
bool IsUsable(const TlsPair& authority);

} // namespace host
