// Cutting a request's path.
#pragma once

#include <string_view>

#include "platform/text.h"

// The first segment of `path`, percent-decoded; what stands behind the cut goes to `rest`.
//
// The cut is at the first "/" of the whole path or, only if there is none, at the first "?". Without either,
// the result is the whole path and `rest` becomes null. A null path gives a null result and leaves `rest` as
// it was.
//
// Decoding undoes "%" with two hexadecimal digits; a plus sign stays a plus sign. A "%" without them, an
// escape of the zero byte, or 1024 bytes or more make the result empty. The bytes are taken in the calling
// thread's code page or, with bUtf8 and if they are valid, as UTF-8.
platform::Bstr SplitPath(const platform::Bstr& path, platform::Bstr& rest, bool bUtf8);

// The text without the "/" at both its ends.
std::u16string_view TrimSlashes(std::u16string_view text) noexcept;
