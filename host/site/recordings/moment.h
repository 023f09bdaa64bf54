// Moments as people and programs write them into an address.
#pragma once

#include <optional>
#include <string_view>

#include "host/recordings/recorded.h"

namespace host {

// Milliseconds since 1970, or a date and time with its zone (ISO 8601): "1764144000000",
// "2025-11-26T08:00:00.250Z", "2025-11-26T10:00+02:00". The blank that a form makes of "+" counts as one.
// Nothing for anything else, a date that no calendar has, and what is before 1970.
std::optional<UnixMs> ReadMoment(std::string_view text) noexcept;

} // namespace host
