// What a host does with the socket of a phone before the component has it.
//
// The component waits for an upload's record with its lock held, ends the running upload of a camera before
// it looks at a new one's password, and neither reads nor sends with a time limit. So a host hands a
// connection over once its record is there, denies a wrong one for a camera that receives itself, and sets
// the limits.
#pragma once

#include <chrono>
#include <cstddef>
#include <string_view>

#include "kit/export.h"

namespace kit {

// What an upload begins with, behind its request's head.
inline constexpr std::size_t kAuthRecordBytes = 131;
inline constexpr std::size_t kRecordPasswordOffset = 67; // up to the end
// What answers a wrong one.
inline constexpr char kRecordDenied = 1;

// Whether the password in a whole record is the one that the settings have, in UTF-8. Compares as the
// component does: single-byte texts of this thread's code page, up to the first zero of the field.
MORROW_KIT_API bool IsRightRecord(std::string_view record, std::string_view password);

// The component waits for a silent phone without a limit of its own. The system asks the phone's side whether
// it is still there, so that a phone that vanished is noticed within about a minute. Any socket: what is no
// TCP stays as it is.
MORROW_KIT_API void WatchPeer(int fd) noexcept;

// The component's viewers send with a blocking socket and without a limit. A phone that takes nothing for
// that long is gone after that: its send fails, and so does the connection of one that vanished. The small
// buffer keeps the pictures on their way few, so that a slow phone lags by little.
MORROW_KIT_API void BoundSends(int fd, std::chrono::milliseconds stall) noexcept;

} // namespace kit
