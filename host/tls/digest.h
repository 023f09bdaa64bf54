#pragma once

#include <string>
#include <string_view>

namespace host {

// SHA-256, in 64 hexadecimal digits.
std::string Sha256(std::string_view text);
// HMAC-SHA256 (RFC 2104), in the same form.
std::string HmacSha256(std::string_view key, std::string_view text);

} // namespace host
