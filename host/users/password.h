// Hashes passwords for the file, checks them, and makes random ones.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace host {

// A yescrypt hash with a fresh salt, as libcrypt writes it. Takes some ten milliseconds and 16 MiB, on
// purpose: CheckQueue holds back more than a few at a time. Throws std::runtime_error when the library has no
// randomness.
std::string HashPassword(std::string_view password);

// Whether the password gives this hash. Costs the same for a wrong one, and for an empty hash, which never
// matches: an unknown user must not be told from a wrong password by the time that the answer takes.
bool VerifyPassword(std::string_view password, const std::string& hash);

using platform::EqualInConstantTime;

// For passwords that nobody chooses: about 95 bits in 16 characters without look-alikes.
std::string RandomPassword();
std::string RandomBytes(std::size_t count);
// So many bytes, in twice as many hexadecimal digits.
std::string RandomHex(std::size_t bytes);

} // namespace host
