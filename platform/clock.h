// The wall clock.
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

// Whole seconds since 1970.
MORROW_PLATFORM_API std::int64_t SecondsSinceEpoch() noexcept;

// Moves what SecondsSinceEpoch gives, for the whole process.
MORROW_PLATFORM_API void AdvanceClockForTesting(std::int64_t seconds) noexcept;

} // namespace platform
