// Users, and what stands for them: phones that are cameras, tokens of programs.
#include <chrono>

#include "host/log/console.h"
#include "host/site/api/message.h"
#include "host/users/changes.h"

namespace host {
namespace {

ApiJson UserAsJson(const std::string& login, UserKind kind) {
    return {{"login", login}, {"kind", KindName(kind)}};
}

Answer NoUser() {
    return Answer::Text(404, "There is no user of that login.");
}

// Nothing for a change that was made.
std::optional<Answer> UserChangeRefused(Authenticator::UserChange change) {
    using enum Authenticator::UserChange;
    switch (change) {
    case Made:
    case Changed:
    case Same:
        break;
    case Missing:
        return NoUser();
    case LastAdmin:
        return Answer::Text(409, "This is the last administrator.");
    case NotWritten:
        return Answer::Text(503, "The users could not be written to disk: all is as it was.");
    case Outdated:
        return ApiOutdated();
    }
    return std::nullopt;
}

ApiJson TokenAsJson(const Tokens::Entry& entry) {
    return {{"id", entry.id},
            {"name", entry.record.name},
            {"login", entry.record.login},
            {"scope", Tokens::NameOf(entry.record.scope)},
            {"made", ApiTime(entry.record.made)},
            {"used", ApiTime(entry.record.used)}};
}

} // namespace

void ApiPages::TellOfUsers(const ApiCall& call, const std::string& what) const {
    TellChange(events, EventKind::UsersChanged, call.request, call.signIn, what);
}

Answer ApiPages::Users(const ApiCall& call) const {
    const std::string version = authenticator.UsersVersion();
    ApiJson list = ApiJson::array();
    for (const auto& [login, user] : authenticator.Users())
        list.push_back(UserAsJson(login, user.kind));
    return ApiAnswer(call.request, {{"users", std::move(list)}}, version);
}

Answer ApiPages::User(const ApiCall& call) const {
    const std::string version = authenticator.UsersVersion();
    const auto login = ApiName(call);
    const auto kind = login ? authenticator.KindOf(*login) : std::nullopt;
    return kind ? ApiAnswer(call.request, UserAsJson(*login, *kind), version) : NoUser();
}

Answer ApiPages::PutUser(const ApiCall& call) const {
    const auto login = ApiName(call);
    if (!login)
        return NoUser();
    ApiBody body(call, {"kind", "password"});
    const auto kind = body.Word<UserKind>("kind", KindFromName, "admin, viewer, phone");
    const auto password = body.Text("password");
    const auto before = authenticator.KindOf(*login);
    if (!before) {
        // Whatever somebody is called who is there already, the name stays.
        if (std::string wrong = CheckLogin(*login); !wrong.empty())
            body.Note("", std::move(wrong));
        if (!body.Json().contains("kind"))
            body.Note("", "a new user has a kind");
        if (!body.Json().contains("password"))
            body.Note("", "a new user has a password");
    }
    if (password) {
        const UserKind becomes = kind.value_or(before.value_or(UserKind::Phone));
        if (std::string wrong = CheckPassword(*password, becomes); !wrong.empty())
            body.Note("/password", std::move(wrong));
    }
    if (const auto refused = body.Refused())
        return *refused;
    const auto [version, unmet] = ReadCondition(call.request, before.has_value());
    if (unmet)
        return *unmet;
    const auto change = authenticator.PutUser(*login, kind, password, version);
    if (const auto refused = UserChangeRefused(change))
        return *refused;
    const bool made = change == Authenticator::UserChange::Made;
    if (change != Authenticator::UserChange::Same) {
        TellOfUsers(call, "user \"" + Printable(*login) + "\" " + (made ? "added" : "changed"));
        if (password && forgetPassword)
            forgetPassword(*login);
    }
    const auto now = authenticator.KindOf(*login);
    if (!now) // somebody has removed it meanwhile
        return NoUser();
    Answer answer = Answer::Json(made ? 201 : 200, UserAsJson(*login, *now));
    answer.headers["ETag"] = authenticator.UsersVersion();
    if (made)
        answer.headers["Location"] = call.request.path;
    return answer;
}

Answer ApiPages::RemoveUser(const ApiCall& call) const {
    const auto login = ApiName(call);
    if (!login || !authenticator.KindOf(*login))
        return NoUser();
    const auto [version, unmet] = ReadCondition(call.request, true);
    if (unmet)
        return *unmet;
    if (const auto refused = UserChangeRefused(authenticator.RemoveUser(*login, version)))
        return *refused;
    TellOfUsers(call, "user \"" + Printable(*login) + "\" removed");
    return ApiDone();
}

Answer ApiPages::PhoneList(const ApiCall&) const {
    ApiJson list = ApiJson::array();
    for (const Phones::Listed& listed : phones.List()) {
        list.push_back({{"id", listed.phone.id},
                        {"camera", listed.phone.camera},
                        {"since", ApiTime(listed.made)},
                        {"lastContact", ApiTime(listed.lastContact)},
                        {"address", listed.address},
                        {"agent", listed.agent},
                        {"live", listed.live}});
    }
    return Answer::Json(200, {{"phones", std::move(list)}});
}

Answer ApiPages::RevokePhone(const ApiCall& call) const {
    if (!phones.End(call.name))
        return Answer::Text(404, "There is no such phone any more.");
    TellOfUsers(call, "a phone was revoked");
    return ApiDone();
}

Answer ApiPages::TokenList(const ApiCall&) const {
    ApiJson list = ApiJson::array();
    for (const Tokens::Entry& entry : tokens.List())
        list.push_back(TokenAsJson(entry));
    return Answer::Json(200, {{"tokens", std::move(list)}});
}

Answer ApiPages::MakeToken(const ApiCall& call) const {
    // Somebody who has got hold of a token could give himself another one, and outlive its end.
    if (!call.signIn.token.empty())
        return Answer::Text(403, "Tokens are made by people, not with a token.");
    ApiBody body(call, {"name", "scope", "login"});
    const auto name = body.Text("name");
    const auto scope = body.Word<Tokens::Scope>("scope", Tokens::ScopeFrom, "read, all");
    std::string login = body.Text("login").value_or(call.signIn.credentials.login);
    const std::string wrong = Tokens::CheckName(name.value_or(""));
    if (!wrong.empty())
        body.Note("/name", wrong);
    if (!body.Json().contains("scope"))
        body.Note("/scope", "a token has a scope");
    if (!authenticator.KindOf(login))
        body.Note("/login", "there is no user of that login");
    if (const auto refused = body.Refused())
        return *refused;
    const auto made = tokens.Make(login, *scope, *name);
    if (!made)
        return Answer::Text(409, "This user has as many tokens as it may: revoke one first.");
    TellOfUsers(call, "a token \"" + Printable(*name) + "\" for \"" + Printable(login) + "\" was made");
    Answer answer = Answer::Json(201, {{"id", made->id},
                                       {"token", made->token},
                                       {"name", *name},
                                       {"login", login},
                                       {"scope", Tokens::NameOf(*scope)}});
    answer.headers["Location"] = call.request.path + "/" + made->id;
    return answer;
}

Answer ApiPages::RevokeToken(const ApiCall& call) const {
    if (!tokens.End(call.name))
        return Answer::Text(404, "There is no such token any more.");
    TellOfUsers(call, "a token was revoked");
    return ApiDone();
}

} // namespace host
