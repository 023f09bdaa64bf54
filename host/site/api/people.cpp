// Users, and what stands for them: phones that are cameras, tokens of programs.
#include <algorithm>
#include <chrono>

#include "host/log/console.h"
#include "host/site/api/message.h"

namespace host {
namespace {

ApiJson UserAsJson(const std::string& login, const User& user) {
    ApiJson json{{"login", login}, {"kind", KindName(user.kind)}, {"cameras", nullptr}};
    if (user.cameras)
        json["cameras"] = *user.cameras;
    return json;
}

// The list of cameras that a body gives a user; null: there is none any more. A name that is no camera's
// would be one that somebody has mistyped, or let the user see a camera to come; those that the list has
// stay.
std::optional<std::optional<CameraNames>> CamerasIn(ApiBody& body, Settings& settings,
                                                    const std::optional<User>& former) {
    const auto given = body.Json().find("cameras");
    if (given == body.Json().end())
        return std::nullopt;
    if (given->is_null())
        return std::optional<CameraNames>();
    if (!given->is_array()) {
        body.Note("/cameras", "this is a list of names, or null");
        return std::nullopt;
    }
    const CameraNames had = former && former->cameras ? *former->cameras : CameraNames();
    const auto reading = settings.Cameras();
    const auto isThere = [&](const std::string& name) {
        return had.contains(name) ||
               (reading &&
                std::ranges::find(reading->cameras, name, &CameraEntry::name) != reading->cameras.end());
    };
    CameraNames names;
    for (std::size_t i = 0; i < given->size(); ++i) {
        const ApiJson& name = (*given)[i];
        if (name.is_string() && isThere(name.get<std::string>()))
            names.insert(name.get<std::string>());
        else
            body.Note("/cameras/" + std::to_string(i), "there is no camera of that name");
    }
    return std::optional(std::move(names));
}

Answer NoUser() {
    return Answer::Text(404, "There is no user of that login.");
}

Answer UsersNotWritten() {
    return Answer::Text(503, "The users could not be written to disk: all is as it was.");
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
        return UsersNotWritten();
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
        list.push_back(UserAsJson(login, user));
    return ApiAnswer(call.request, {{"users", std::move(list)}}, version);
}

Answer ApiPages::User(const ApiCall& call) const {
    const std::string version = authenticator.UsersVersion();
    const auto login = ApiName(call);
    const auto user = login ? authenticator.Find(*login) : std::nullopt;
    return user ? ApiAnswer(call.request, UserAsJson(*login, *user), version) : NoUser();
}

Answer ApiPages::PutUser(const ApiCall& call) const {
    const auto login = ApiName(call);
    if (!login)
        return NoUser();
    ApiBody body(call, {"kind", "password", "cameras"});
    const auto kind = body.Word<UserKind>("kind", KindFromName, "admin, viewer, phone");
    const auto password = body.Text("password");
    const auto before = authenticator.Find(*login);
    const auto cameras = CamerasIn(body, settings, before);
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
        const UserKind becomes = kind.value_or(before ? before->kind : UserKind::Phone);
        if (std::string wrong = CheckPassword(*password, becomes); !wrong.empty())
            body.Note("/password", std::move(wrong));
    }
    if (const auto refused = body.Refused())
        return *refused;
    const auto [version, unmet] =
        ReadCondition(call.request, before.has_value(), authenticator.UsersVersion());
    if (unmet)
        return *unmet;
    const auto change =
        authenticator.PutUser(*login, {.kind = kind, .password = password, .cameras = cameras}, version);
    if (const auto refused = UserChangeRefused(change))
        return *refused;
    const bool made = change == Authenticator::UserChange::Made;
    if (change != Authenticator::UserChange::Same) {
        TellOfUsers(call, "user \"" + Printable(*login) + "\" " + (made ? "added" : "changed"));
        if (password && forgetPassword)
            forgetPassword(*login);
    }
    const auto now = authenticator.Find(*login);
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
    const auto [version, unmet] = ReadCondition(call.request, true, authenticator.UsersVersion());
    if (unmet)
        return *unmet;
    if (const auto refused = UserChangeRefused(authenticator.RemoveUser(*login, version)))
        return *refused;
    TellOfUsers(call, "user \"" + Printable(*login) + "\" removed");
    return ApiDone();
}

Answer ApiPages::PutPassword(const ApiCall& call) const {
    // Whoever has got hold of one would keep its user out.
    if (!call.signIn.token.empty())
        return Answer::Text(403, "Passwords are changed by people, not with a token.");
    ApiBody body(call, {"present", "password"});
    const auto present = body.Text("present");
    const auto password = body.Text("password");
    if (!body.Json().contains("present"))
        body.Note("", "the present password has to be given");
    const std::string wrong = CheckPassword(password.value_or(""), call.signIn.kind);
    if (!wrong.empty())
        body.Note("/password", wrong);
    if (const auto refused = body.Refused())
        return *refused;
    std::chrono::seconds retryAfter{0};
    const std::string& login = call.signIn.credentials.login;
    switch (authenticator.ChangePassword(call.signIn, *present, *password, call.request.peer, &retryAfter)) {
        using enum Authenticator::PasswordChange;
    case Changed:
        break;
    case NotYours:
    case Unsound:
        return Answer::Text(404, "This sign-in has no password of its own.");
    case Wrong:
        LogRefusal(call.request, login, {}, kWrongPassword);
        return Answer::Text(403, "This is not the present password.");
    case TurnedAway: {
        Answer answer = Answer::Text(429, "Too many wrong passwords, or too many sign-ins at once.");
        answer.headers["Retry-After"] = std::to_string(retryAfter.count());
        return answer;
    }
    case NotWritten:
        return UsersNotWritten();
    }
    if (forgetPassword)
        forgetPassword(login);
    TellOfUsers(call, "password changed");
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
