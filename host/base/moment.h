// Moments in time as they are counted, and as people and programs write them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

namespace host {

// Milliseconds since 1970, UTC.
using UnixMs = std::int64_t;
inline constexpr UnixMs kDayMs = 86'400'000;
// Years of four digits alone are written.
inline constexpr UnixMs kYear10000 = 253'402'300'800'000;

// Milliseconds since 1970, or a date and time with its zone (ISO 8601): "1764144000000",
// "2025-11-26T08:00:00.250Z", "2025-11-26T10:00+02:00". The blank that a form makes of "+" counts as one.
// Nothing for anything else, a date that no calendar has, and what is before 1970.
std::optional<UnixMs> ReadMoment(std::string_view text) noexcept;

// In UTC. `form` takes as many as it likes of year, month, day, hour, minute, second and millisecond, all of
// type int.
std::string FormatMoment(UnixMs time, const char* form);
// "2026-11-26T07:16:54.123Z" (RFC 3339)
std::string MomentText(UnixMs time);
// "2026-11-26"
std::string DayText(UnixMs time);

} // namespace host
