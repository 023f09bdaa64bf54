// How people's devices come to trust the certificate of this server.
#pragma once

#include <string>
#include <string_view>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/tls/certificates.h"

namespace host {

struct TrustPages {
    const Certificates* certificates; // null: TLS is not spoken
    const std::string& language;      // the server's

    // What the browser's warning means and what to do about it. In clear, where anybody on the way could
    // change it, it explains and leads on to the same page under TLS. It shows no fingerprint: one that comes
    // over the connection that is in question proves nothing.
    [[nodiscard]] Answer Page(const Request& request) const;
    // "authority.crt", the authority in DER, or "authority.mobileconfig", a profile for iPhones that holds
    // it.
    [[nodiscard]] Answer File(std::string_view name) const;
};

} // namespace host
