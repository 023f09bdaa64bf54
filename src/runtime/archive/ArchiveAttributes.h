// Attributes and times of an archive's items, as the platform counts them.
#pragma once

#include <cstdint>
#include <span>

#include "runtime/archive/Archive.h"
#include "runtime/archive/ArchiveFormat.h"

// The sum of kAttribute... bits.
std::uint32_t AttributesOf(const SCentralHeader& oHeader) noexcept;

// All three times from the DOS date and time, which are local time in steps of two seconds, and then those
// that an extended timestamp in the local header's extra field tells exactly.
void SetTimes(SArchiveEntry& oEntry, const SCentralHeader& oHeader,
              std::span<const std::uint8_t> localExtra) noexcept;
