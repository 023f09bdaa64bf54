// The host's figures as text for programs.
#pragma once

#include <string>
#include <string_view>

#include "host/site/services.h"

namespace host {

// A JSON string with its quotes. Bytes that are no UTF-8 become replacement characters.
std::string JsonString(std::string_view text);

// {"status":"ok","uptime":...,"version":...,"cameras":[...]}
std::string HealthJson(const Services& services);
// The same figures as a message of the multiplexed stream, with the numbers of the cameras and the host's
// time (Unix milliseconds), against which the page tells how old a picture is.
std::string StateJson(const Services& services);

} // namespace host
