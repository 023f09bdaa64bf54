// What TlsContext and TlsSession have of the library, for the sources of this room.
#pragma once

#include "host/tls/context.h"
#include "host/tls/openssl.h"

namespace host {

struct TlsContext::Inside {
    SslContextPtr context;
    X509Ptr certificate;
};

} // namespace host
