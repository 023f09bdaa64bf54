// Pages for what has no script: old phones, readers, watches.
//
//   /tiny                       what can be watched
//   /tiny/KEY?every=N&width=W   one source: a picture that comes anew every N seconds
//   /tiny/KEY/picture?width=W   the picture, made for that width by the frame packer
//
// N is 1, 2, 5, 10 or 60 (5), W is 96, 128, 176, 240 or 320 (176); anything else is the usual value. KEY is
// one percent-encoded segment. Pages speak the language that the browser asks for, else the server's.
#pragma once

#include <string_view>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/services.h"

namespace host {

bool IsTinyPath(std::string_view path) noexcept;
// To a GET or HEAD of somebody who may watch. Any thread.
Answer TinyAnswer(const Request& request, const Services& services);

} // namespace host
