// Users, for who administers them. Forms without script.
//
//   GET /users               all users, and a form for a new one
//   GET /users?login=LOGIN   one user: kind, password, cameras
//   POST /users              either form. `action` is "save" or "remove"; `login`, `kind`, `password` (empty:
//   it
//                            stays), `sees` ("all", "list") and a `camera` for each one of the list; `new`
//                            for a user that is not there; `version` of the users, as the form had it
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>

#include "host/events/event_log.h"
#include "host/html/texts.h"
#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/settings/settings.h"
#include "host/users/authenticator.h"

namespace host {

struct UsersPages {
    Authenticator& authenticator;
    Settings& settings;
    EventLog& events;
    const std::string& language; // the server's
    const std::function<void(std::string_view login)>
        forget{}; // a first password that somebody else could know

    [[nodiscard]] Answer Page(const Request& request) const;
    // Leads back to the list; a form that is not taken comes again, with what is wrong above it.
    [[nodiscard]] Answer Take(const Request& request, const SignIn& by, std::string_view form) const;

private:
    // What a form shows of a user.
    struct Draft {
        std::string login{};
        UserKind kind = UserKind::Viewer;
        std::optional<CameraNames> cameras{};
        bool fresh = false; // there is no such user yet
    };
    // What is wrong with a form.
    struct Problem {
        unsigned status;
        Word word;
    };

    [[nodiscard]] Answer List(std::string_view code, const Draft& draft,
                              std::optional<Problem> problem) const;
    [[nodiscard]] Answer One(std::string_view code, const Draft& draft, std::optional<Problem> problem) const;
    [[nodiscard]] std::string FormOf(std::string_view code, const Draft& draft) const;
    [[nodiscard]] std::optional<Problem> Save(const Draft& draft, std::string_view form) const;
    // All that there are now, and those of a list.
    [[nodiscard]] CameraNames Cameras(const std::optional<CameraNames>& listed) const;
};

} // namespace host
