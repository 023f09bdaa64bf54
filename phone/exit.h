// What programs of this house end with.
#pragma once

namespace phone {

inline constexpr int kExitDone = 0;
inline constexpr int kExitFailed = 1;
inline constexpr int kExitMisuse = 2;

} // namespace phone
