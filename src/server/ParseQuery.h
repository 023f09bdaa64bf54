// The query of a request.
#pragma once

#include <string_view>

#include "midlet/MakeJar.h"

// "a=1&b" gives a to 1 and b to nothing. A value goes up to the next "&", also over further "="; of a key
// that comes again the last value counts. Pieces without a key are dropped. Nothing is percent-decoded.
QueryMap ParseQuery(std::u16string_view text);
