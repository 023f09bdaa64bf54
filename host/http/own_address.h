// Under which addresses a server is reached that listens at an endpoint, as "ADDR:PORT".
#pragma once

#include <string>
#include <string_view>

#include "host/http/endpoint.h"

namespace host {

// From other machines: an address of this machine's in place of "all of them". Empty where none reaches it.
[[nodiscard]] std::string AuthorityForOthers(const Endpoint& endpoint);

// What phones are told: that, and an address that only this machine has where others do not reach it.
[[nodiscard]] std::string AuthorityForPhones(const Endpoint& endpoint);

// Whether what phones are told ("HOST" or "HOST:PORT", 80 being the usual one) is seen to lead there. A name
// may, and so may the address of a router, but that is not seen.
[[nodiscard]] bool LeadsTo(std::string_view authority, const Endpoint& endpoint);

} // namespace host
