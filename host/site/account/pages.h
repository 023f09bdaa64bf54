// Signing in with a browser, signing out, and changing one's password.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "host/events/event_log.h"
#include "host/html/texts.h"
#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/users/authenticator.h"
#include "host/users/session_cookie.h"
#include "host/users/sessions.h"

namespace host {

struct AccountPages {
    Authenticator& authenticator;
    Sessions& sessions;
    EventLog& events;
    const SessionCookie& cookie;
    const std::string& language;                          // the server's
    std::function<void(std::string_view login)> forget{}; // a first password that somebody else could know

    // The form; `to` is where it leads to then, a path of this server.
    [[nodiscard]] Answer SignInPage(const Request& request, std::string_view to) const;
    // Takes the form. A session of this browser that is there already ends: the new one has a number that
    // nobody knew before.
    [[nodiscard]] Answer TakeSignIn(const Request& request, std::string_view form, std::string_view to) const;
    [[nodiscard]] Answer SignOut(const Request& request) const;

    // An archive holds the name and the password that it is asked for with, which a session has not got.
    // A browser gets a form for them under TLS, and is asked by HTTP Basic otherwise, as programs are.
    [[nodiscard]] bool AsksByForm(const Request& request) const;
    [[nodiscard]] Answer ArchivePage(const Request& request) const;
    // Nothing where the name and the password of that form are somebody's; otherwise what to answer.
    [[nodiscard]] std::optional<Answer> RefuseArchive(const Request& request, std::string_view form,
                                                      std::string_view archive, SignIn& signIn) const;

    [[nodiscard]] Answer PasswordPage(const Request& request, const SignIn& visitor) const;
    // Ends all sessions of the user, and begins another one here.
    [[nodiscard]] Answer TakePassword(const Request& request, const SignIn& visitor,
                                      std::string_view form) const;

    // For every page of somebody who has signed in here: the name, and the ways to the two above. HTML.
    [[nodiscard]] std::string Line(const Request& request, const SignIn& visitor) const;

private:
    // What stands above a form again that was not taken, and the status of that page.
    struct Problem {
        unsigned status;
        Word word;
        std::chrono::seconds retryAfter{0};
    };
    // Whether name and password of a form are somebody's; nothing where they are.
    [[nodiscard]] std::optional<Problem> Check(const Request& request, std::string_view form,
                                               SignIn& signIn) const;
};

} // namespace host
