// One connection of the web server, from its first byte to its last.
#pragma once

#include "host/base/wait.h"
#include "host/http/endpoint.h"

namespace host {

struct Site;

// Serves requests until the peer leaves, a limit or the stop ends it, or the socket is handed over. Never
// throws.
void ServeConnection(Descriptor socket, const PeerAddress& peer, const Site& site) noexcept;

} // namespace host
