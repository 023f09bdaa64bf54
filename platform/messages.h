// The system's message table: English texts of error and status codes.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/export.h"

namespace platform {

// The text of a code as the table holds it, with its line end, inserts unexpanded; empty when there is none.
// A status that carries an error code (0x8007xxxx) has that error's text.
MORROW_PLATFORM_API std::u16string_view MessageText(std::uint32_t code) noexcept;

} // namespace platform
