// Tells who has changed what.
#pragma once

#include <string>

#include "host/events/event_log.h"
#include "host/http/request.h"
#include "host/users/authenticator.h"

namespace host {

// Writes a line to the log and an event: `what` of them, as "camera \"yard\" removed". With a camera the
// event is one of that camera.
void TellChange(EventLog& events, EventKind kind, const Request& request, const SignIn& by,
                const std::string& what, const std::string& camera = {});

} // namespace host
