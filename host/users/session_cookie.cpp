#include "host/users/session_cookie.h"

#include <algorithm>

#include "host/users/phones.h"
#include "host/users/sessions.h"

namespace host {
namespace {

// Each value of that name in a Cookie line.
template <class Take>
void EachCookie(std::string_view line, std::string_view name, Take take) {
    while (!line.empty()) {
        const std::string_view pair = Trimmed(line.substr(0, line.find(';')));
        line.remove_prefix(std::min(
            line.size(), line.find(';') == std::string_view::npos ? line.size() : line.find(';') + 1));
        const auto sign = pair.find('=');
        if (sign != std::string_view::npos && pair.substr(0, sign) == name)
            take(pair.substr(sign + 1));
    }
}

} // namespace

SessionCookie UserCookie(std::uint16_t port) {
    return {port, "__Host-morrow-", "morrow-plain-", Sessions::kLongest};
}

SessionCookie PhoneCookie(std::uint16_t port) {
    return {port, "__Host-morrow-phone-", "morrow-phone-plain-", Phones::kCookieLife};
}

std::string SessionCookie::Name(bool secure) const {
    return std::string(secure ? secureName : clearName) + std::to_string(port);
}

std::string_view SessionCookie::In(const Request& request) const {
    std::string_view id;
    int count = 0;
    EachCookie(request.Field("Cookie"), Name(request.secure), [&](std::string_view value) {
        id = value;
        ++count;
    });
    // Somebody who can set one beside it, for a part of the paths, would choose whose session this is.
    return count == 1 ? id : std::string_view();
}

bool SessionCookie::IsIn(const Request& request) const {
    bool there = false;
    EachCookie(request.Field("Cookie"), Name(request.secure), [&](std::string_view) { there = true; });
    return there;
}

std::string SessionCookie::Line(const Request& request, std::string_view id) const {
    const auto age = id.empty() ? std::chrono::seconds(0) : longest;
    return Name(request.secure) + "=" + std::string(id) + "; Path=/; Max-Age=" + std::to_string(age.count()) +
           (request.secure ? "; Secure" : "") + "; HttpOnly; SameSite=Lax";
}

} // namespace host
