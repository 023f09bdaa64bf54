#include "host/site/addresses.h"

#include <algorithm>
#include <string>

#include "host/log/console.h"
#include "host/site/mobile/pages.h"

namespace host {
namespace {

constexpr std::string_view kInterface = "/api/";

// The token of an Authorization field (RFC 6750); nothing for another kind of sign-in.
std::optional<std::string_view> BearerToken(std::string_view authorization) {
    constexpr std::string_view kScheme = "bearer ";
    const auto lower = [](char c) { return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c; };
    const bool bearer = std::ranges::equal(authorization.substr(0, kScheme.size()), kScheme, {}, lower);
    return bearer ? std::optional(Trimmed(authorization.substr(kScheme.size()))) : std::nullopt;
}

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
    if (request.peer.owner) {
        signIn.result = SignIn::Result::Known;
        signIn.kind = UserKind::Admin;
        signIn.owner = true;
        return request.path.starts_with(kInterface)
                   ? std::nullopt
                   : std::optional(Answer::Text(403, "The control socket is for /api/ alone."));
    }
    if (demo && (who == Who::Watcher || who == Who::LinkMaker)) {
        if (IsLoopbackHost(request.Host()))
            return std::nullopt;
        counters.Refuse(Refusal::ForeignHost);
        return Answer::Text(403, "The demo answers only to localhost, 127.0.0.1 and [::1].");
    }
    const std::string_view own = request.Field("Authorization");
    if (const auto token = BearerToken(own))
        return RefuseToken(request, who, *token, signIn);
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
        refuse(Refusal::Unauthorized, signIn.result == SignIn::Result::Wrong ? kWrongPassword : "");
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
    return Forbid(request, signIn, "this kind of user may not do that");
}

std::optional<Answer> Access::Forbid(const Request& request, const SignIn& signIn,
                                     std::string_view reason) const {
    counters.Refuse(Refusal::Forbidden);
    LogRefusal(request, signIn.credentials.login, {}, reason);
    // The log's reason is a part of its line, the answer's is a sentence.
    std::string sentence(reason);
    sentence.front() = static_cast<char>(sentence.front() - 'a' + 'A');
    return Answer::Text(403, sentence + '.');
}

std::optional<Answer> Access::RefuseToken(const Request& request, Who who, std::string_view token,
                                          SignIn& signIn) const {
    // Nobody guesses 256 bits, so nobody is held up for trying.
    const auto found = tokens.Find(token);
    const auto kind = found ? authenticator.KindOf(found->record.login) : std::nullopt;
    if (!kind) {
        counters.Refuse(Refusal::Unauthorized);
        LogRefusal(request, {}, {}, "unknown token");
        Answer answer = Answer::Text(401, "There is no such token any more.");
        answer.headers["WWW-Authenticate"] = "Bearer realm=\"Morrowstream\", error=\"invalid_token\"";
        return answer;
    }
    signIn.result = SignIn::Result::Known;
    signIn.credentials.login = found->record.login;
    signIn.kind = *kind;
    signIn.token = found->id;
    // Elsewhere passwords come out, or are asked for.
    if (who != Who::Watcher && !request.path.starts_with(kInterface))
        return Forbid(request, signIn, "a token is no sign-in here");
    const bool reads = request.method == "GET" || request.method == "HEAD";
    if (found->record.scope == Tokens::Scope::Read && !reads)
        return Forbid(request, signIn, "this token is for reading alone");
    if (!MayDo(*kind, who))
        return Forbid(request, signIn, "this kind of user may not do that");
    return std::nullopt;
}

Rights Access::RightsOf(const SignIn& visitor, Who who) const {
    const bool watchesDemo = demo && (who == Who::Watcher || who == Who::LinkMaker);
    return watchesDemo ? Rights::OfAll() : authenticator.RightsOf(visitor);
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
