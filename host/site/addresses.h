// The table of addresses: what this server answers, to whom, and how much it reads for it.
//
// A request is answered by the row whose pattern fits it best and that has its method; the order of the rows
// means nothing. The other answers follow from the table as well:
//
//   a method that no row of the pattern has     405, with those that they have as Allow
//   no WebSocket where only one is answered     426
//   somebody who may not                        401, 403 or 429 (Access)
//   a page of another site, where From forbids  403
//   a longer body, or one of unknown length     413, 411
//   no host named, where it has to be           400
//   another machine, in clear             307 to https, 421 or 403 (Clear)
//   somebody who takes up as many as he may     429
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string_view>
#include <utility>

#include "host/base/counters.h"
#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/account/pages.h"
#include "host/users/authenticator.h"
#include "host/users/tokens.h"

namespace host {

struct Site;
class Visit;

// Watching is for everybody in the demo of this machine alone, under a loopback name of it. The name
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
    Sessions& sessions;
    Tokens& tokens;
    const SessionCookie& cookie;
    Counters& counters;
    const bool demo; // of this machine alone

    // Nothing when the request may go on; otherwise its answer. May wait, when wrong passwords came before.
    // `signIn` gets who sends it: nobody, where everybody is let in. A session counts before a sign-in that
    // comes with the request, but not for a `stream`, whose name and password the component asks for.
    [[nodiscard]] std::optional<Answer> Refuse(const Request& request, Who who, bool stream,
                                               SignIn& signIn) const;
    // Which cameras a visitor sees who was let in.
    [[nodiscard]] Rights RightsOf(const SignIn& visitor, Who who) const;
    // Whether a page offers its visitor what is there for `who`. Who watches the demo without a sign-in is
    // offered everything: signing in comes with the click.
    [[nodiscard]] bool Offers(const SignIn& visitor, Who who) const;
    // Where a page that is of no use to its visitor leads to.
    [[nodiscard]] std::string_view WayBack(const SignIn& visitor) const;

private:
    // The same for a sign-in with a program's token.
    [[nodiscard]] std::optional<Answer> RefuseToken(const Request& request, Who who, std::string_view token,
                                                    SignIn& signIn) const;
    [[nodiscard]] std::optional<Answer> Forbid(const Request& request, const SignIn& signIn,
                                               std::string_view reason) const;
};

extern const std::string_view kChallenge; // the value of WWW-Authenticate

// A set of them. A GET that asks for a WebSocket is one where a row has WebSocket, and else a GET.
enum class Method : unsigned {
    Get = 1,
    Head = 2,
    Post = 4,
    Put = 8,
    Delete = 16,
    Patch = 32,
    WebSocket = 64
};
inline constexpr std::pair<Method, std::string_view> kMethodNames[] = {
    {Method::Get, "GET"}, {Method::Head, "HEAD"},     {Method::Post, "POST"},
    {Method::Put, "PUT"}, {Method::Delete, "DELETE"}, {Method::Patch, "PATCH"}};

// Which pages may make a browser ask, as Origin and Sec-Fetch-Site tell. Programs send neither.
enum class From {
    Anywhere,
    Here,      // not those of other sites
    Own,       // those of this server alone: a program has to name its origin as a browser does
    HereToken, // and with the token of this run in X-Settings-Token, which only a page of this host can read
};

// Whether a request of HTTP/1.1 has to name the host that it is for, as the protocol asks. The programs of
// old phones do not.
enum class Host { Named, Unnamed };

// What of a limited number it takes up as long as it is served.
enum class Place {
    None,
    Kept,   // nothing: it is answered also while no connection is free, so that a supervisor does not take a
            // crowd for a dead server
    Stream, // of the live streams of its sender
    Viewer, // of the packed pictures for its sender
};

// What plain HTTP gets from another machine, where TLS is spoken (Site::allowPlain turns it off).
enum class Clear {
    Served,  // old phones know nothing else
    Moved,   // a page: a GET or HEAD is sent on to https, anything else refused
    Refused, // it would carry a password, a picture or a change
};

struct Address {
    // A path. With "/*" at its end also everything below it; "/*" alone is what nothing else fits. "/*/"
    // stands for one part of a path.
    std::string_view pattern;
    unsigned methods;
    Who who;
    From from;
    Form refusals;    // of method, origin and body
    std::size_t body; // bytes that are read at the most
    Host host;
    Place place;
    Clear clear;
    // Answers, or takes the connection.
    void (*serve)(const Site& site, Visit& visit);
};
// The head alone is read: what follows it is for `serve` to take.
inline constexpr std::size_t kBodyUnread = SIZE_MAX;

std::span<const Address> Addresses() noexcept;

// Where a browser goes after a sign-in: `wanted` where that is a page of the table, else "/".
std::string_view PageToGoTo(std::string_view wanted);

struct AddressMatch {
    const Address* address = nullptr; // null when no row has the method
    const Address* pattern = nullptr; // some row of the pattern; never null
    unsigned methods = 0;             // of all rows of the pattern
    std::string_view rest;            // of the request's path: what the pattern's "*" stands for
};
AddressMatch FindAddress(const Request& request);

} // namespace host
