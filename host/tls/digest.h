#pragma once

#include <string>
#include <string_view>

namespace host {

// SHA-256, in 64 hexadecimal digits.
std::string Sha256(std::string_view text);

} // namespace host
