// Bytes as text: the standard alphabet of RFC 4648, section 4, with padding and without line breaks.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace platform {

[[nodiscard]] MORROW_PLATFORM_API std::string Base64(std::string_view bytes);
// The padding may be missing. Nothing for a text that has another character or one digit too many.
[[nodiscard]] MORROW_PLATFORM_API std::optional<std::string> DecodeBase64(std::string_view text);

} // namespace platform
