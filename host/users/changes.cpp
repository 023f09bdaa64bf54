#include "host/users/changes.h"

#include "host/log/console.h"

namespace host {

void TellChange(EventLog& events, EventKind kind, const Request& request, const SignIn& by,
                const std::string& what, const std::string& camera) {
    Console::Get().Log("message", what + (by.owner ? " on the command line"
                                                   : " by \"" + Printable(by.credentials.login) + "\"" +
                                                         (by.token.empty() ? "" : ", with a token,") +
                                                         " from " + request.peer.text));
    Event event{.kind = kind, .camera = camera, .who = by.credentials.login, .text = what};
    event.details["address"] = by.owner ? "control socket" : request.peer.text;
    if (!by.token.empty())
        event.details["token"] = by.token;
    events.Tell(std::move(event));
}

} // namespace host
