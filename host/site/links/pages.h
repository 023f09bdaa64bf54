// Links for phones over the web.
//
//   POST /links?camera=NAME       makes one: JSON with its address, its token, the seconds that it is
//                                 good for, and a QR code of the address as SVG
//   DELETE /links/TOKEN           revokes it
//   GET /get/TOKEN                a page for the phone, which says what it installs; opening it uses
//                                 nothing up, since programs that read codes and messages open addresses
//                                 ahead
//   GET /get/TOKEN/Sendora.jar    the archive of the midlet that makes the phone that camera, once
//   GET /get/TOKEN/Sendora.jad    its descriptor, before that
//
// There are no links to the viewing midlet: its sign-in would be a user's, and the host keeps only hashes of
// those passwords.
#pragma once

#include <optional>
#include <string_view>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/links/link_table.h"
#include "host/site/services.h"

namespace host {

// Making and revoking. Who may watch the demo may make links, else an administrator.
[[nodiscard]] bool IsLinksPath(std::string_view path) noexcept;
[[nodiscard]] Answer LinksAnswer(const Request& request, const Services& services);

// What needs no sign-in but the token.
[[nodiscard]] bool IsGetPath(std::string_view path) noexcept;
// With `delivery` when the answer is the archive: whoever sends it says whether it has arrived.
struct GetReply {
    Answer answer;
    std::optional<LinkTable::Delivery> delivery{};
};
[[nodiscard]] GetReply GetAnswer(const Request& request, const Services& services);

// The address of a link, for a phone. `host`: of the Host line of who asks for it; where that names this
// machine to itself only, the address that the server listens on is taken, if that is one for others.
[[nodiscard]] std::string AddressOf(const LinkTable::Link& link, std::string_view host,
                                    const Services& services);

} // namespace host
