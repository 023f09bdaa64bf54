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

std::optional<Answer> Access::Refuse(const Request& request, Who who, SignIn& signIn) const {
    if (who == Who::Everybody)
        return std::nullopt;
    if (demo && (who == Who::Watcher || who == Who::LinkMaker)) {
        if (IsLoopbackHost(request.Host()))
            return std::nullopt;
        counters.Refuse(Refusal::ForeignHost);
        return Answer::Text(403, "The demo answers only to localhost, 127.0.0.1 and [::1].");
    }
    signIn = authenticator.Check(request.Field("Authorization"), request.peer);
    const auto refuse = [&](Refusal refusal, std::string_view reason) {
        counters.Refuse(refusal);
        // Who has not tried to sign in yet, as every browser at first, is asked to, and not refused.
        if (!reason.empty())
            LogRefusal(request, signIn.credentials.login, {}, reason);
    };
    switch (signIn.result) {
    case SignIn::Result::Known:
        break;
    case SignIn::Result::TurnedAway: {
        refuse(Refusal::Throttled, "too many wrong passwords");
        Answer answer = Answer::Text(429, "Too many wrong passwords, or too many sign-ins at once.");
        answer.headers["Retry-After"] = std::to_string(signIn.retryAfter.count());
        return answer;
    }
    case SignIn::Result::Missing:
    case SignIn::Result::Wrong: {
        refuse(Refusal::Unauthorized, signIn.result == SignIn::Result::Wrong ? "wrong password" : "");
        Answer answer =
            Answer::Text(401, "Sign in with the login and the password of a user of this server.");
        answer.headers["WWW-Authenticate"] = "Basic realm=\"Morrowstream\", charset=\"UTF-8\"";
        return answer;
    }
    }
    if (MayDo(signIn.kind, who))
        return std::nullopt;
    refuse(Refusal::Forbidden, "this kind of user may not do that");
    return Answer::Text(403, "This kind of user may not do that.");
}

std::string_view Access::WayBack(const SignIn& visitor) const {
    return visitor.result != SignIn::Result::Known || Offers(visitor, Who::Watcher) ? "/" : "/mobile";
}

bool Access::Offers(const SignIn& visitor, Who who) const {
    if (visitor.result != SignIn::Result::Known)
        return demo;
    return MayDo(visitor.kind, who) || (demo && (who == Who::Watcher || who == Who::LinkMaker));
}

} // namespace host
