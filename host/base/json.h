// JSON as text.
#pragma once

#include <string>
#include <string_view>

namespace host {

// A JSON string with its quotes. Bytes that are no UTF-8 become replacement characters.
std::string JsonString(std::string_view text);

} // namespace host
