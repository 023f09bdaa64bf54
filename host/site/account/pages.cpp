#include "host/site/account/pages.h"

#include "host/html/page.h"
#include "host/html/texts.h"
#include "host/log/console.h"
#include "platform/text.h"

namespace host {
namespace {

Answer Redirect(std::string_view to) {
    Answer answer = Answer::Text(303, "Go on there.");
    answer.headers["Location"] = to;
    return answer;
}

std::string FieldOf(std::string_view label, std::string_view name, std::string_view type,
                    std::string_view fill) {
    std::string field = "<p><label>" + std::string(label) + "<br><input name=\"" + std::string(name) +
                        "\" type=\"" + std::string(type) + "\" autocomplete=\"" + std::string(fill) +
                        "\" required";
    if (type == "text")
        field += " autocapitalize=\"none\" spellcheck=\"false\"";
    return field + "></label></p>\n";
}

std::string FormOf(std::string_view action, const std::string& fields, std::string_view button) {
    return "<form method=\"post\" action=\"" + std::string(action) + "\">\n" + fields + "<p><button>" +
           std::string(button) + "</button></p>\n</form>\n";
}

std::string ProblemOf(std::string_view language, std::optional<Word> word) {
    return word ? "<p role=\"alert\"><b>" + std::string(TextOf(language, *word)) + "</b></p>\n"
                : std::string();
}

// What a form for a name and a password is for, and where it leads.
struct Purpose {
    std::string_view action;
    Word title;
    std::optional<Word> note; // below the title
};
constexpr Purpose kForPages{"/sign-in", Word::ToSignIn, std::nullopt};
constexpr Purpose kForArchive{"/archive", Word::Download, Word::ArchiveHolds};

Answer SignInForm(const Purpose& purpose, std::string_view language, std::string_view to, unsigned status,
                  std::optional<Word> problem) {
    const auto text = [&](Word word) { return TextOf(language, word); };
    std::string fields = FieldOf(text(Word::UserName), "name", "text", "username") +
                         FieldOf(text(Word::Password), "password", "password", "current-password");
    fields += "<input type=\"hidden\" name=\"to\" value=\"" + EscapeHtml(to) + "\">\n";
    std::string body = "<h1>" + std::string(text(purpose.title)) + "</h1>\n";
    if (purpose.note)
        body += "<p>" + std::string(text(*purpose.note)) + "</p>\n";
    body += ProblemOf(language, problem) + FormOf(purpose.action, fields, text(purpose.title));
    return AnswerOf({.status = status, .language = language, .title = text(purpose.title), .body = body});
}

Answer PasswordForm(std::string_view language, const std::string& login, unsigned status,
                    std::optional<Word> problem) {
    const auto text = [&](Word word) { return TextOf(language, word); };
    // For the browser's own memory of passwords.
    const std::string fields =
        "<input type=\"hidden\" name=\"name\" autocomplete=\"username\" value=\"" + EscapeHtml(login) +
        "\">\n" + FieldOf(text(Word::PresentPassword), "password", "password", "current-password") +
        FieldOf(text(Word::NewPassword), "new", "password", "new-password") +
        FieldOf(text(Word::NewPasswordAgain), "again", "password", "new-password");
    const std::string body = "<h1>" + std::string(text(Word::ChangePassword)) + "</h1>\n" +
                             ProblemOf(language, problem) +
                             FormOf("/password", fields, text(Word::ChangePassword));
    return AnswerOf(
        {.status = status, .language = language, .title = text(Word::ChangePassword), .body = body});
}

Answer NotHere() {
    return Answer::Text(404, "The password of a camera is changed in the settings.");
}

Answer Throttled(Answer form, std::chrono::seconds retryAfter) {
    if (retryAfter.count() > 0)
        form.headers["Retry-After"] = std::to_string(retryAfter.count());
    return form;
}

} // namespace

Answer AccountPages::SignInPage(const Request& request, std::string_view to) const {
    return SignInForm(kForPages, LanguageOf(request.Field("Accept-Language"), language), to, 200,
                      std::nullopt);
}

std::optional<AccountPages::Problem> AccountPages::Check(const Request& request, std::string_view form,
                                                         SignIn& signIn) const {
    const auto login = FormValue(form, "name");
    const auto password = FormValue(form, "password");
    if (!login || !password || login->empty())
        return Problem{400, Word::WrongPassword};
    signIn = authenticator.Check(BasicAuthorization({*login, *password}), request.peer);
    if (signIn.result == SignIn::Result::TurnedAway) {
        LogRefusal(request, *login, {}, "too many wrong passwords");
        return Problem{429, Word::TooManyTries, signIn.retryAfter};
    }
    if (signIn.result != SignIn::Result::Known) {
        LogRefusal(request, *login, {}, kWrongPassword);
        return Problem{403, Word::WrongPassword};
    }
    return std::nullopt;
}

Answer AccountPages::TakeSignIn(const Request& request, std::string_view form, std::string_view to) const {
    const std::string_view code = LanguageOf(request.Field("Accept-Language"), language);
    SignIn signIn;
    if (const auto problem = Check(request, form, signIn))
        return Throttled(SignInForm(kForPages, code, to, problem->status, problem->word),
                         problem->retryAfter);
    if (const auto former = cookie.In(request); !former.empty())
        sessions.End(former);
    // What a phone may see begins elsewhere.
    Answer answer = Redirect(to == "/" && !Allows(signIn.kind, Right::Watch) ? "/mobile" : to);
    const Sessions::Owner owner{signIn.credentials.login, signIn.camera};
    answer.headers["Set-Cookie"] = cookie.Line(request, sessions.Begin(owner, request.secure));
    return answer;
}

bool AccountPages::AsksByForm(const Request& request) const {
    return request.secure && request.method == "GET" && PrefersHtml(request.Field("Accept"));
}

Answer AccountPages::ArchivePage(const Request& request) const {
    const std::string target = request.path + (request.query.empty() ? "" : "?" + request.query);
    return SignInForm(kForArchive, LanguageOf(request.Field("Accept-Language"), language), target, 200,
                      std::nullopt);
}

std::optional<Answer> AccountPages::RefuseArchive(const Request& request, std::string_view form,
                                                  std::string_view archive, SignIn& signIn) const {
    const auto problem = Check(request, form, signIn);
    if (!problem)
        return std::nullopt;
    return Throttled(SignInForm(kForArchive, LanguageOf(request.Field("Accept-Language"), language), archive,
                                problem->status, problem->word),
                     problem->retryAfter);
}

Answer AccountPages::SignOut(const Request& request) const {
    if (const auto id = cookie.In(request); !id.empty())
        sessions.End(id);
    Answer answer = Redirect("/sign-in");
    answer.headers["Set-Cookie"] = cookie.Line(request, {});
    return answer;
}

Answer AccountPages::PasswordPage(const Request& request, const SignIn& visitor) const {
    if (!authenticator.MayChangePassword(visitor))
        return NotHere();
    return PasswordForm(LanguageOf(request.Field("Accept-Language"), language), visitor.credentials.login,
                        200, std::nullopt);
}

Answer AccountPages::TakePassword(const Request& request, const SignIn& visitor,
                                  std::string_view form) const {
    const std::string_view code = LanguageOf(request.Field("Accept-Language"), language);
    const std::string& login = visitor.credentials.login;
    if (!authenticator.MayChangePassword(visitor))
        return NotHere();
    const auto present = FormValue(form, "password");
    const auto wanted = FormValue(form, "new");
    if (!present || !wanted || FormValue(form, "again") != wanted)
        return PasswordForm(code, login, 400, Word::PasswordsDiffer);
    std::chrono::seconds retryAfter{0};
    switch (authenticator.ChangePassword(visitor, *present, *wanted, request.peer, &retryAfter)) {
        using enum Authenticator::PasswordChange;
    case Changed:
        break;
    case NotYours:
        return NotHere();
    case Unsound:
        return PasswordForm(code, login, 422, Word::PasswordNotTaken);
    case Wrong:
        LogRefusal(request, login, {}, kWrongPassword);
        return PasswordForm(code, login, 403, Word::WrongPassword);
    case TurnedAway:
        return Throttled(PasswordForm(code, login, 429, Word::TooManyTries), retryAfter);
    case NotWritten:
        return Answer::Text(500, "The password could not be written to disk: it stays what it was.");
    }
    if (forget)
        forget(login);
    sessions.EndAllOf(login);
    TellChange(events, EventKind::UsersChanged, request, visitor, "password changed");
    const std::string body = "<h1>" + std::string(TextOf(code, Word::PasswordChanged)) +
                             "</h1>\n<p><a href=\"/\">" + std::string(TextOf(code, Word::AllCameras)) +
                             "</a></p>\n";
    Answer answer = AnswerOf({.language = code, .title = TextOf(code, Word::PasswordChanged), .body = body});
    answer.headers["Set-Cookie"] = cookie.Line(request, sessions.Begin({login, false}, request.secure));
    return answer;
}

std::string AccountPages::Line(const Request& request, const SignIn& visitor) const {
    if (visitor.session.empty())
        return {};
    const std::string_view code = LanguageOf(request.Field("Accept-Language"), language);
    std::string line =
        "<form class=\"account\" method=\"post\" action=\"/sign-out\"><span class=\"account-name\">" +
        EscapeHtml(visitor.credentials.login) + "</span> ";
    if (authenticator.MayChangePassword(visitor))
        line += "<a href=\"/password\">" + std::string(TextOf(code, Word::ChangePassword)) + "</a> ";
    if (visitor.kind == UserKind::Admin)
        line += "<a href=\"/users\">" + std::string(TextOf(code, Word::Users)) + "</a> ";
    return line + "<button>" + std::string(TextOf(code, Word::ToSignOut)) + "</button></form>";
}

} // namespace host
