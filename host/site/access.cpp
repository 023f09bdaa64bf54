#include "host/site/addresses.h"

#include <string>

namespace host {
namespace {

bool MayDo(UserKind kind, Who who) {
    switch (who) {
    case Who::Watcher:
        return Allows(kind, Right::Watch);
    case Who::Uploader:
        return Allows(kind, Right::Upload);
    case Who::AnyUser:
        return Allows(kind, Right::View);
    case Who::LinkMaker:
    case Who::Admin:
        return Allows(kind, Right::Administer);
    case Who::Everybody:
        return true;
    }
    return false;
}

} // namespace

std::optional<Answer> Access::Refuse(const Request& request, Who who) const {
    if (who == Who::Everybody)
        return std::nullopt;
    if (demo && (who == Who::Watcher || who == Who::LinkMaker)) {
        if (IsLoopbackHost(request.Host()))
            return std::nullopt;
        counters.Refuse(Refusal::ForeignHost);
        return Answer::Text(403, "The demo answers only to localhost, 127.0.0.1 and [::1].");
    }
    const SignIn signIn = authenticator.Check(request.Field("Authorization"), request.peer);
    switch (signIn.result) {
    case SignIn::Result::Known:
        break;
    case SignIn::Result::TurnedAway: {
        counters.Refuse(Refusal::Throttled);
        Answer answer = Answer::Text(429, "Too many wrong passwords from this address.");
        answer.headers["Retry-After"] = std::to_string(signIn.retryAfter.count());
        return answer;
    }
    case SignIn::Result::Missing:
    case SignIn::Result::Wrong: {
        counters.Refuse(Refusal::Unauthorized);
        Answer answer =
            Answer::Text(401, "Sign in with the login and the password of a user of this server.");
        answer.headers["WWW-Authenticate"] = "Basic realm=\"Morrowstream\", charset=\"UTF-8\"";
        return answer;
    }
    }
    if (MayDo(signIn.kind, who))
        return std::nullopt;
    counters.Refuse(Refusal::Forbidden);
    return Answer::Text(403, "This kind of user may not do that.");
}

} // namespace host
