// Where files go that live for moments.
#pragma once

#include <string>

#include "platform/export.h"

namespace platform {

// The folder for temporary files in UTF-8, with a separator at its end; empty, with the last error set, when
// there is none. It is a private one of this process (mode 0700), made by the first call in the folder that
// the host has set, or in the system's, and removed with all that is in it when the process exits.
MORROW_PLATFORM_API std::string TemporaryFolder();

// Where to make it; for the host's start, before the first use.
MORROW_PLATFORM_API void SetTemporaryParent(std::string folder);

} // namespace platform
