// `morrowstream-phone view`.
#pragma once

#include <span>
#include <string_view>

#include "phone/exit.h"

namespace phone {

// Reads the arguments behind the sub-command, runs the viewer or the viewers until the pictures are there, a
// connection ends, or `stop` is readable, and prints rate and bytes. The process's exit status. Throws
// UsageError.
int RunView(std::span<const std::string_view> arguments, int stop);

} // namespace phone
