// Bytes as text: the standard alphabet of RFC 4648, section 4, with padding and without line breaks.
#pragma once

#include <string>
#include <string_view>

#include "platform/export.h"

namespace platform {

[[nodiscard]] MORROW_PLATFORM_API std::string Base64(std::string_view bytes);

} // namespace platform
