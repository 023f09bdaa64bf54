// Who may ask for what.
#pragma once

#include <optional>

#include "host/base/counters.h"
#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/users/authenticator.h"

namespace host {

// Watching is for everybody while there are demo users, under a loopback name of this machine. The name
// matters because a foreign page can have its own name point to this machine: its requests then look like
// those of the person at the browser, but for the Host line.
enum class Who {
    Everybody, // without a sign-in
    Watcher,   // admin, viewer; see above for the demo
    LinkMaker, // admin; in the demo who watches
    AnyUser,
    Uploader, // admin, phone
    Admin,
};

struct Access {
    Authenticator& authenticator;
    Counters& counters;
    const bool demo; // there are demo users

    // Nothing when the request may go on; otherwise its answer. May wait, when wrong passwords came before.
    [[nodiscard]] std::optional<Answer> Refuse(const Request& request, Who who) const;
};

} // namespace host
