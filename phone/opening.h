// The HTTP head with which a phone opens a connection, before the binary conversation begins.
#pragma once

#include <string>
#include <string_view>

#include "phone/connection.h"

namespace phone {

// Where phones of every kind connect to; the name of the camera or source follows behind a "/".
inline constexpr std::string_view kVideoResource = "/mobile/video";

// RFC 3986, 2.1: every byte that is not unreserved becomes %XX.
std::string PercentEncode(std::string_view text);

// The whole head with its blank line: `method`, the resource with the encoded `name`, and the credentials as
// HTTP Basic. `parameters` follow behind a "?", as they are, unless they are empty. There is no
// Content-Length: what follows is no HTTP body, and the server takes the socket out of HTTP.
std::string OpeningHead(std::string_view method, const ServerAddress& server, std::string_view name,
                        std::string_view login, std::string_view password, std::string_view parameters = {});

// What a status line means for a phone whose conversation ended before it began, as one line for a terminal.
std::string HttpRefusal(std::string statusLine);

} // namespace phone
