// A request: its head, read once, and what its fields mean.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "host/base/wait.h"
#include "host/http/endpoint.h"

namespace host {

struct BeastRequest; // the library's own form (beast_request.h)

struct Request {
    std::string head; // as it came, byte for byte, blank line included
    std::string method;
    std::string path;  // the target without scheme, authority and query; starts with "/"; not decoded
    std::string query; // without "?"
    bool keepAlive = false;
    bool hasBody = false;
    bool chunked = false;       // the length of the body is not told
    std::uint64_t bodySize = 0; // as the head tells it
    bool expectsContinue = false;
    bool wantsWebSocket = false;
    bool lacksHost = false;                     // which HTTP/1.1 asks for
    std::shared_ptr<const BeastRequest> fields; // never null in a request that was parsed
    PeerAddress peer;
    bool secure = false;         // it came under TLS to this server, or to a trusted proxy
    bool toThisMachine = false;  // from a program of this machine, to the loopback
    Clock::time_point arrived{}; // when its head was complete

    // The value of a header field, without blanks around it; names are the same in every case of their
    // letters. The first one of that name; empty without one.
    [[nodiscard]] std::string_view Field(std::string_view name) const;
    // All of that name, with commas between them.
    [[nodiscard]] std::string AllOf(std::string_view name) const;
    [[nodiscard]] std::string_view Host() const { return Field("Host"); }
};

// The sign-in of HTTP Basic (RFC 7617).
struct Credentials {
    std::string login; // UTF-8, like the password
    std::string password;
};

struct ParsedRequest {
    std::optional<Request> request;
    unsigned status = 400; // the answer when there is no request
};
// `head` is complete, up to and including its blank line. The one place where a head is read.
ParsedRequest ParseRequest(std::string head);

// A GET of a path with its query, from where another request comes and with a sign-in of its own, for what
// would ask who makes it. Nothing for a target that cannot stand in a head.
std::optional<Request> RequestAs(const Credentials& credentials, std::string_view target,
                                 const Request& asked);

// Undoes percent escapes. Nothing for a broken escape, a zero byte, or bytes that are not UTF-8.
std::optional<std::string> PercentDecode(std::string_view text);
// A text as one segment of a path.
std::string PercentEncode(std::string_view text);

// The value of a parameter of a query, as it stands there; the first one of that name, empty without one.
std::string_view QueryParameter(std::string_view query, std::string_view name);
// A parameter of a form (application/x-www-form-urlencoded), undone; nothing where it is missing or is no
// text.
std::optional<std::string> FormValue(std::string_view form, std::string_view name);

// All values of that name, but for those that are no text.
std::vector<std::string> FormValues(std::string_view form, std::string_view name);

// Whether a Host line (name, optional port) names this machine itself: localhost, 127.0.0.1 or [::1].
bool IsLoopbackHost(std::string_view host);
// Whether the Origin line of a request is there, and scheme, host and port in it are those that the request
// came to. A port that is the usual one of its scheme need not be named.
bool HasOwnOrigin(const Request& request);
// Whether an Origin line belongs to the page of that Host: "http://HOST" or "https://HOST".
bool IsSameOrigin(std::string_view origin, std::string_view host);

// --- Values of header fields
// --------------------------------------------------------------------------------

// The text without blanks and tabs around it.
std::string_view Trimmed(std::string_view text) noexcept;

// How much a client wants a media type, from the value of its Accept line (RFC 9110, 12.5.1): 1 at the most,
// 0 for one that it does not take. What names the type itself counts before "type/*", and that before "*/*".
// Without a line everything is welcome. Parts that make no sense are passed over.
double QualityOf(std::string_view accept, std::string_view type) noexcept;

// Whether a page goes out as HTML. Browsers ask for it by name; a client that takes anything (curl, a phone's
// midlet) gets the page's own XML.
bool PrefersHtml(std::string_view accept) noexcept;

// The language among those (codes of two letters) that a client wants most, from the value of its
// Accept-Language line (RFC 9110, 12.5.4): "ru-RU" is Russian as well, "*" stands for `usual`, of equals the
// first one counts. `usual` where nothing fits.
std::string_view PreferredLanguage(std::string_view accept, std::span<const std::string_view> languages,
                                   std::string_view usual) noexcept;

// Reads the value of an Authorization field; nothing when it is no HTTP Basic.
std::optional<Credentials> ParseBasic(std::string_view authorization);
// Writes the value of an Authorization field.
std::string BasicAuthorization(const Credentials& credentials);

} // namespace host
