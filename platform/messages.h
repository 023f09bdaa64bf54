// Statuses and errors in words.
#pragma once

#include <string>

#include "platform/export.h"
#include "platform/status.h"

namespace platform {

// Describes a status for people, in UTF-8: "Access is denied (0x80070005)", or its number alone where the
// table of MessageText has no text for it.
MORROW_PLATFORM_API std::string DescribeStatus(HRESULT hr);
// Describes the calling thread's last error in the same way, without the number where there is a text.
MORROW_PLATFORM_API std::string DescribeLastError();

} // namespace platform
