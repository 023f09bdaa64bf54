// What a person types at a terminal, and what a program reads in its place.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/export.h"

namespace platform {

// One line of standard input, without its end. At a terminal it is asked for with `prompt`, and nothing of it
// is shown. Nothing at the end of the input, and after Ctrl-C at the terminal.
MORROW_PLATFORM_API std::optional<std::string> ReadSecretLine(std::string_view prompt);

} // namespace platform
