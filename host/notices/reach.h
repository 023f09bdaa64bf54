// Whether a server can be connected to at all.
#pragma once

#include <string>

#include "host/base/wait.h"

namespace host {

// Empty when a connection came about, which is closed at once; else why not, in a line. Within 5 s behind the
// look-up of the name, and at the stop signal.
std::string WhyNotReached(const std::string& server, int port, const Wakeup& stop);

} // namespace host
