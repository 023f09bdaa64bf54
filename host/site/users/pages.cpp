#include "host/site/users/pages.h"

#include <algorithm>
#include <array>
#include <utility>

#include "host/html/page.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::array<std::pair<UserKind, Word>, 3> kKindWords{{{UserKind::Viewer, Word::KindViewer},
                                                               {UserKind::Phone, Word::KindPhone},
                                                               {UserKind::Admin, Word::KindAdmin}}};

std::string TextIn(std::string_view code, Word word) {
    return std::string(TextOf(code, word));
}

std::string HiddenField(std::string_view name, std::string_view value) {
    return "<input type=\"hidden\" name=\"" + std::string(name) + "\" value=\"" + EscapeHtml(value) + "\">\n";
}

std::string ButtonOf(std::string_view action, const std::string& text) {
    return "<p><button name=\"action\" value=\"" + std::string(action) + "\">" + text + "</button></p>\n";
}

std::string CameraList(const CameraNames& cameras) {
    std::string text;
    for (const std::string& camera : cameras)
        text += (text.empty() ? "" : ", ") + EscapeHtml(camera);
    return text.empty() ? "–" : text;
}

// One of several, or of many.
std::string ChoiceOf(std::string_view type, std::string_view name, std::string_view value, bool chosen,
                     const std::string& label) {
    return "<label><input type=\"" + std::string(type) + "\" name=\"" + std::string(name) + "\" value=\"" +
           EscapeHtml(value) + "\"" + (chosen ? " checked" : "") + "> " + label + "</label><br>\n";
}

Answer BackToList() {
    Answer answer = Answer::Text(303, "Go on there.");
    answer.headers["Location"] = "/users";
    return answer;
}

} // namespace

CameraNames UsersPages::Cameras(const std::optional<CameraNames>& listed) const {
    CameraNames names = listed.value_or(CameraNames());
    if (const auto reading = settings.Cameras()) {
        for (const CameraEntry& camera : reading->cameras)
            names.insert(camera.name);
    }
    return names;
}

std::string UsersPages::FormOf(std::string_view code, const Draft& draft) const {
    std::string form =
        "<form method=\"post\" action=\"/users\">\n" + HiddenField("version", authenticator.UsersVersion());
    if (draft.fresh)
        form += HiddenField("new", "1") + "<p><label>" + TextIn(code, Word::UserName) +
                "<br><input name=\"login\" type=\"text\" autocomplete=\"off\" autocapitalize=\"none\" "
                "spellcheck=\"false\" required value=\"" +
                EscapeHtml(draft.login) + "\"></label></p>\n";
    else
        form += HiddenField("login", draft.login);
    form += "<p>" + TextIn(code, Word::Kind) + "<br>\n";
    for (const auto& [kind, word] : kKindWords)
        form += ChoiceOf("radio", "kind", KindName(kind), kind == draft.kind, TextIn(code, word));
    form += "</p>\n<p><label>" + TextIn(code, draft.fresh ? Word::Password : Word::NewPassword) +
            "<br><input name=\"password\" type=\"password\" autocomplete=\"new-password\"" +
            (draft.fresh ? " required" : "") + "></label>" +
            (draft.fresh ? "" : "<br><span class=\"note\">" + TextIn(code, Word::PasswordStays) + "</span>") +
            "</p>\n<p>" + TextIn(code, Word::Cameras) + "<br>\n";
    form += ChoiceOf("radio", "sees", "all", !draft.cameras, TextIn(code, Word::SeesAll));
    form += ChoiceOf("radio", "sees", "list", draft.cameras.has_value(), TextIn(code, Word::SeesList));
    form += "</p>\n<p>";
    for (const std::string& camera : Cameras(draft.cameras))
        form += ChoiceOf("checkbox", "camera", camera, draft.cameras && draft.cameras->contains(camera),
                         EscapeHtml(camera));
    return form + "<span class=\"note\">" + TextIn(code, Word::NewCameraInNoList) + "</span></p>\n" +
           ButtonOf("save", TextIn(code, draft.fresh ? Word::AddUser : Word::Save)) + "</form>\n";
}

Answer UsersPages::List(std::string_view code, const Draft& draft, std::optional<Problem> problem) const {
    std::string items;
    for (const auto& [login, user] : authenticator.Users()) {
        const auto kind = std::ranges::find(kKindWords, user.kind, &std::pair<UserKind, Word>::first);
        items += "<li><a href=\"/users?login=" + PercentEncode(login) + "\">" + EscapeHtml(login) +
                 "</a> <span class=\"note\">" + TextIn(code, kind->second) +
                 (user.cameras && user.kind != UserKind::Admin ? ": " + CameraList(*user.cameras) : "") +
                 "</span></li>\n";
    }
    const std::string body =
        "<h1>" + TextIn(code, Word::Users) + "</h1>\n<ul>\n" + items + "</ul>\n<h2>" +
        TextIn(code, Word::AddUser) + "</h2>\n" +
        (problem ? "<p role=\"alert\"><b>" + TextIn(code, problem->word) + "</b></p>\n" : "") +
        FormOf(code, draft) + "<p><a href=\"/settings\">" + TextIn(code, Word::Settings) +
        "</a> <a href=\"/\">" + TextIn(code, Word::AllCameras) + "</a></p>\n";
    return AnswerOf({.status = problem ? problem->status : 200,
                     .language = code,
                     .title = TextOf(code, Word::Users),
                     .body = body});
}

Answer UsersPages::One(std::string_view code, const Draft& draft, std::optional<Problem> problem) const {
    const std::string name = EscapeHtml(draft.login);
    // The box is in the way of a hand that slips.
    const std::string body =
        "<h1>" + name + "</h1>\n" +
        (problem ? "<p role=\"alert\"><b>" + TextIn(code, problem->word) + "</b></p>\n" : "") +
        FormOf(code, draft) + "<form method=\"post\" action=\"/users\">\n" +
        HiddenField("login", draft.login) + HiddenField("version", authenticator.UsersVersion()) +
        "<p><label><input type=\"checkbox\" required> " + TextOf(code, Word::RemoveUser, name) +
        "</label></p>\n" + ButtonOf("remove", TextIn(code, Word::Remove)) +
        "</form>\n<p><a href=\"/users\">" + TextIn(code, Word::Users) + "</a></p>\n";
    return AnswerOf(
        {.status = problem ? problem->status : 200, .language = code, .title = name, .body = body});
}

Answer UsersPages::Page(const Request& request) const {
    const std::string_view code = LanguageOf(request.Field("Accept-Language"), language);
    const std::string login = FormValue(request.query, "login").value_or("");
    if (login.empty())
        return List(code, {.fresh = true}, std::nullopt);
    const auto user = authenticator.Find(login);
    if (!user)
        return Answer::Text(404, "There is no user of that login.");
    return One(code, {.login = login, .kind = user->kind, .cameras = user->cameras}, std::nullopt);
}

// Nothing when it is done.
std::optional<UsersPages::Problem> UsersPages::Save(const Draft& draft, std::string_view form) const {
    const std::string password = FormValue(form, "password").value_or("");
    const std::string version = FormValue(form, "version").value_or("");
    const bool there = authenticator.Find(draft.login).has_value();
    if (draft.fresh && there)
        return Problem{409, Word::LoginTaken};
    if (draft.fresh && !CheckLogin(draft.login).empty())
        return Problem{422, Word::LoginNotTaken};
    if (!draft.fresh && !there)
        return Problem{409, Word::ChangedMeanwhile};
    if ((draft.fresh || !password.empty()) && !CheckPassword(password, draft.kind).empty())
        return Problem{422, Word::PasswordNotTaken};
    const auto change =
        authenticator.PutUser(draft.login,
                              {.kind = draft.kind,
                               .password = password.empty() ? std::nullopt : std::optional(password),
                               .cameras = draft.cameras},
                              version);
    switch (change) {
        using enum Authenticator::UserChange;
    case Made:
    case Changed:
    case Same:
        break;
    case LastAdmin:
        return Problem{409, Word::LastAdmin};
    case NotWritten:
        return Problem{503, Word::Failed};
    case Missing:
    case Outdated:
        return Problem{409, Word::ChangedMeanwhile};
    }
    if (!password.empty() && forget)
        forget(draft.login);
    return std::nullopt;
}

Answer UsersPages::Take(const Request& request, const SignIn& by, std::string_view form) const {
    const std::string_view code = LanguageOf(request.Field("Accept-Language"), language);
    Draft draft{.login = FormValue(form, "login").value_or(""),
                .fresh = FormValue(form, "new").has_value() && FormValue(form, "new") != ""};
    const std::string action = FormValue(form, "action").value_or("");
    std::string what = "removed";
    std::optional<Problem> problem;
    if (action == "remove") {
        using enum Authenticator::UserChange;
        const auto change = authenticator.RemoveUser(draft.login, FormValue(form, "version").value_or(""));
        if (change == LastAdmin)
            problem = {409, Word::LastAdmin};
        else if (change == NotWritten)
            problem = {503, Word::Failed};
        else if (change == Outdated)
            problem = {409, Word::ChangedMeanwhile};
    } else {
        const auto kind = KindFromName(FormValue(form, "kind").value_or(""));
        if (action != "save" || !kind)
            return Answer::Text(400, "This form is not one of this page.");
        draft.kind = *kind;
        if (FormValue(form, "sees") == "list") {
            // Those that are there: another name would let the user see a camera to come.
            const auto former = authenticator.Find(draft.login);
            const CameraNames known = Cameras(former ? former->cameras : std::nullopt);
            draft.cameras.emplace();
            for (std::string& name : FormValues(form, "camera")) {
                if (known.contains(name))
                    draft.cameras->insert(std::move(name));
            }
        }
        what = draft.fresh ? "added" : "changed";
        problem = Save(draft, form);
    }
    if (!problem) {
        TellChange(events, EventKind::UsersChanged, request, by,
                   "user \"" + platform::Printable(draft.login) + "\" " + what);
        return BackToList();
    }
    if (draft.fresh)
        return List(code, draft, problem);
    const auto user = authenticator.Find(draft.login);
    if (!user) // somebody has removed it meanwhile
        return List(code, {.fresh = true}, problem);
    if (problem->word == Word::ChangedMeanwhile || action == "remove")
        draft = {.login = draft.login, .kind = user->kind, .cameras = user->cameras};
    return One(code, draft, problem);
}

} // namespace host
