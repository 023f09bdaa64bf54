#include "host/site/access.h"

#include <string>

namespace host {
namespace {

bool MayDo(UserKind kind, Purpose purpose) {
    switch (purpose) {
    case Purpose::Watch:
        return kind != UserKind::Phone;
    case Purpose::Upload:
        return kind != UserKind::Viewer;
    case Purpose::Settings:
        return kind == UserKind::Admin;
    case Purpose::View:
    case Purpose::Mobile:
        return true;
    }
    return false;
}

} // namespace

std::optional<Answer> CheckAccess(const Request& request, Purpose purpose, const Services& services) {
    if (purpose == Purpose::Watch && services.demo) {
        if (IsLoopbackHost(request.Host()))
            return std::nullopt;
        services.counters.Refuse(Refusal::ForeignHost);
        return Answer::Text(403, "The demo answers only to localhost, 127.0.0.1 and [::1].");
    }
    const SignIn signIn = services.authenticator.Check(request.Field("Authorization"), request.peer);
    switch (signIn.result) {
    case SignIn::Result::Known:
        break;
    case SignIn::Result::TurnedAway: {
        services.counters.Refuse(Refusal::Throttled);
        Answer answer = Answer::Text(429, "Too many wrong passwords from this address.");
        answer.headers["Retry-After"] = std::to_string(signIn.retryAfter.count());
        return answer;
    }
    case SignIn::Result::Missing:
    case SignIn::Result::Wrong: {
        services.counters.Refuse(Refusal::Unauthorized);
        Answer answer =
            Answer::Text(401, "Sign in with the login and the password of a user of this server.");
        answer.headers["WWW-Authenticate"] = "Basic realm=\"Morrowstream\", charset=\"UTF-8\"";
        return answer;
    }
    }
    if (MayDo(signIn.kind, purpose))
        return std::nullopt;
    services.counters.Refuse(Refusal::Forbidden);
    return Answer::Text(403, "This kind of user may not do that.");
}

} // namespace host
