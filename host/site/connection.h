// One connection of the web server, from its first byte to its last.
#pragma once

#include "host/base/wait.h"
#include "host/site/services.h"

namespace host {

// Serves requests until the peer leaves, a limit or the stop ends it, or the socket is handed over. Never
// throws.
void ServeConnection(Descriptor socket, const PeerAddress& peer, const Services& services) noexcept;

} // namespace host
