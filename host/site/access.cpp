#include "host/site/addresses.h"

#include <string>

#include "host/site/mobile/pages.h"

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

const std::string_view kChallenge = "Basic realm=\"Morrowstream\", charset=\"UTF-8\"";

std::optional<Answer> Access::Refuse(const Request& request, Who who, bool stream, SignIn& signIn) const {
    if (who == Who::Everybody)
        return std::nullopt;
    if (demo && (who == Who::Watcher || who == Who::LinkMaker)) {
        if (IsLoopbackHost(request.Host()))
            return std::nullopt;
        counters.Refuse(Refusal::ForeignHost);
        return Answer::Text(403, "The demo answers only to localhost, 127.0.0.1 and [::1].");
    }
    const std::string_view own = request.Field("Authorization");
    // The session first: a browser goes on sending a password that it was given once, also when that is no
    // longer right. An archive is made for the password that comes with its request.
    const bool bySession = !stream && (own.empty() || !MobilePages::MayBuildArchive(request.path));
    const std::string_view id = bySession ? cookie.In(request) : std::string_view();
    const auto owner = id.empty() ? std::nullopt : sessions.Find(id, request.secure);
    if (auto entered = owner ? authenticator.Enter(*owner) : std::nullopt) {
        signIn = std::move(*entered);
        signIn.session = id;
    } else {
        signIn = authenticator.Check(own, request.peer);
    }
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
        // A page whose session is over says so itself, and its browser is not to ask in a window of its own.
        if (!own.empty() || stream || !cookie.IsIn(request))
            answer.headers["WWW-Authenticate"] = kChallenge;
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
