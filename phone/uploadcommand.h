// `morrowstream-phone upload`.
#pragma once

#include <span>
#include <string_view>

#include "phone/exit.h"

namespace phone {

// Reads the arguments behind the sub-command, runs the phone or the phones until the frames are sent, a
// connection ends, or `stop` is readable, and prints what was sent. The process's exit status. Throws
// UsageError.
int RunUpload(std::span<const std::string_view> arguments, int stop);

} // namespace phone
