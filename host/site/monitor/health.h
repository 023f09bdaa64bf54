// What a supervisor asks: does the process live, and should it get traffic?
#pragma once

#include <optional>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/services.h"

namespace host {

// The answer to GET or HEAD of /healthz and /readyz; nothing for another request. Without a sign-in, since
// the answers tell nothing but themselves. Neither calls the component nor waits for a lock.
//
//   /healthz   200 "ok": this thread runs
//   /readyz    200 "ready", or 503 with a line that says why not
std::optional<Answer> ProbeAnswer(const Request& request, const Services& services);

} // namespace host
