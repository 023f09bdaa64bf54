// Identifiers as text: "{158F9099-FA63-4B67-B221-C9A22E5061E9}", in capitals.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "platform/com.h"
#include "platform/export.h"

namespace platform {

MORROW_PLATFORM_API std::u16string GuidText(const GUID& identifier);
// Takes letters of either case; nothing for any other form.
MORROW_PLATFORM_API std::optional<GUID> ParseGuid(std::u16string_view text) noexcept;

} // namespace platform
