// How large a picture from outside may be in this process.
//
// The codec is linked into the host and into the component apart, so a limit inside it would be two. Whoever
// runs the process sets this one before the first connection; whoever decodes what strangers send asks first.
// Any thread may do either.
#pragma once

#include <cstdint>

#include "platform/export.h"

namespace platform {

// In pixels, width times height. Without a call there is none but the codec's own.
MORROW_PLATFORM_API void SetPictureLimit(std::int64_t pixels) noexcept;

// Whether a picture of this size may be decoded. Sides may be as large as they like; one below 1 is no
// picture.
[[nodiscard]] MORROW_PLATFORM_API bool IsWithinPictureLimit(std::int32_t width, std::int32_t height) noexcept;

} // namespace platform
