// HTTP Basic (RFC 7617).
#pragma once

#include <optional>
#include <string>
#include <string_view>

namespace host {

struct Credentials {
    std::string login; // UTF-8, like the password
    std::string password;
};
// Of the value of an Authorization field; nothing when it is no HTTP Basic.
std::optional<Credentials> ParseBasic(std::string_view authorization);
// The other way round.
std::string BasicAuthorization(const Credentials& credentials);

} // namespace host
