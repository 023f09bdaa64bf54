#include "host/site/connection.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <string>

#include <poll.h>
#include <sys/socket.h>

#include "host/html/page.h"
#include "host/http/proxy.h"
#include "host/http/wire.h"
#include "host/log/console.h"
#include "host/site/addresses.h"
#include "host/site/site.h"
#include "host/users/password.h"

namespace host {
namespace {

Answer RefuseMethod(const AddressMatch& match, std::string_view asked) {
    constexpr auto kSocket = static_cast<unsigned>(Method::WebSocket);
    const Form form = match.pattern->refusals;
    if (match.methods == kSocket && (asked == "GET" || asked == "HEAD"))
        return Answer::Refusal(form, 426, "This is a WebSocket.");
    unsigned left = match.methods & ~kSocket;
    if (match.methods != left)
        left |= static_cast<unsigned>(Method::Get);
    const bool several = (left & (left - 1)) != 0;
    std::string allow;
    std::string words;
    for (const auto& [method, name] : kMethodNames) {
        if ((left & static_cast<unsigned>(method)) == 0)
            continue;
        left &= ~static_cast<unsigned>(method);
        words.append(allow.empty() ? "" : left == 0 ? " and " : ", ").append(name);
        allow.append(allow.empty() ? "" : ", ").append(name);
    }
    Answer answer = Answer::Refusal(form, 405, "Only " + words + (several ? " are" : " is") + " known here.");
    answer.headers["Allow"] = allow;
    return answer;
}

// Whether a page of another site asks. Programs say nothing of where they come from; browsers do.
bool IsForeign(const Request& request) {
    if (const auto origin = request.Field("Origin"); !origin.empty() && !IsSameOrigin(origin, request.Host()))
        return true;
    const auto site = request.Field("Sec-Fetch-Site");
    return !site.empty() && site != "same-origin" && site != "none";
}

// What another machine may not have in clear.
std::optional<Answer> RefuseClear(const AddressMatch& match, const Request& request, const Site& site) {
    const Clear clear = (match.address != nullptr ? match.address : match.pattern)->clear;
    if (clear == Clear::Served || request.secure || request.toThisMachine || site.allowPlain)
        return std::nullopt;
    const bool reads = request.method == "GET" || request.method == "HEAD";
    if (clear == Clear::Moved && reads && !request.wantsWebSocket) {
        // Nobody is sent to a name that this server cannot be at.
        if (!site.certificates->Current()->Covers(request.Host()))
            return Answer::Text(421,
                                "Ask for this with https, and under a name of this server's certificate.");
        Answer answer = Answer::Text(307, "This is for https.");
        answer.headers["Location"] = "https://" + std::string(request.Host()) + request.path +
                                     (request.query.empty() ? "" : "?" + request.query);
        return answer;
    }
    site.counters.Refuse(Refusal::InClear);
    return Answer::Refusal(
        match.pattern->refusals, 403,
        "This goes over https alone; the option --allow-plain of the server lets it go in clear.");
}

std::optional<Answer> RefuseOrigin(const Address& address, const Request& request, bool bySession,
                                   const Site& site) {
    // A browser sends a session's cookie along with what any page makes it ask.
    const bool changes = (request.method != "GET" && request.method != "HEAD") || request.wantsWebSocket;
    const bool foreign = address.from == From::Own || (bySession && changes)
                             ? !HasOwnOrigin(request)
                             : address.from != From::Anywhere && IsForeign(request);
    if (foreign) {
        site.counters.Refuse(Refusal::ForeignHost);
        return Answer::Refusal(address.refusals, 403, "This is for the pages of this server.");
    }
    if (address.from == From::HereToken &&
        !EqualInConstantTime(request.Field("X-Settings-Token"), site.pageToken)) {
        site.counters.Refuse(Refusal::Forbidden);
        return Answer::Refusal(
            address.refusals, 403,
            "The token of the page is missing, or is one of an earlier run of the server.");
    }
    return std::nullopt;
}

std::optional<Answer> RefuseBody(const Address& address, const Request& request) {
    if (address.body == kBodyUnread || !request.hasBody)
        return std::nullopt;
    if (address.body == 0)
        return Answer::Refusal(address.refusals, 413, "No request to this address has a body.");
    if (request.chunked)
        return Answer::Refusal(address.refusals, 411, "Tell the length of the document.");
    if (request.bodySize > address.body)
        return Answer::Refusal(address.refusals, 413,
                               "A document has at most " + std::to_string(address.body) + " bytes here.");
    return std::nullopt;
}

// A browser that goes to a page gets a form of this server, not a window of its own.
Answer SendToSignIn(const Request& request) {
    Answer answer = Answer::Text(303, "Sign in first.");
    answer.headers["Location"] =
        request.path == "/"
            ? "/sign-in"
            : "/sign-in?to=" +
                  PercentEncode(request.path + (request.query.empty() ? "" : "?" + request.query));
    return answer;
}

std::optional<Answer> TakePlace(const Address& address, Visit& visit, const Site& site) {
    if (address.place != Place::Stream && address.place != Place::Viewer)
        return std::nullopt;
    Shares& shares = address.place == Place::Stream ? site.shares.streams : site.shares.viewers;
    return TakeShare(shares, visit.request, visit.signIn.credentials.login, site.counters, &visit.place);
}

std::optional<Answer> Refuse(const Address& address, Visit& visit, const Site& site) {
    const bool stream = address.body == kBodyUnread;
    if (auto refused = site.access.Refuse(visit.request, address.who, stream, visit.signIn)) {
        if (refused->status == 401 && address.pattern == "/mobile/*" &&
            MobilePages::MayBuildArchive(visit.request.path) && site.account.AsksByForm(visit.request) &&
            visit.request.Field("Authorization").empty())
            return site.account.ArchivePage(visit.request);
        const bool page = address.clear == Clear::Moved && address.pattern != "/assets/*";
        return refused->status == 401 && page && PrefersHtml(visit.request.Field("Accept")) &&
                       visit.request.Field("Authorization").empty()
                   ? SendToSignIn(visit.request)
                   : refused;
    }
    visit.rights = site.access.RightsOf(visit.signIn, address.who);
    if (auto refused = RefuseOrigin(address, visit.request, !visit.signIn.session.empty(), site))
        return refused;
    if (auto refused = RefuseBody(address, visit.request))
        return refused;
    return TakePlace(address, visit, site);
}

void Serve(Visit& visit, const Site& site) {
    const AddressMatch match = FindAddress(visit.request);
    visit.refusals = match.pattern->refusals;
    if (visit.request.lacksHost && match.pattern->host == Host::Named) {
        site.counters.Refuse(Refusal::HeadInvalid);
        return visit.SendLast(Answer::Text(400, "A request of HTTP/1.1 names the host that it is for."));
    }
    if (const auto refused = RefuseClear(match, visit.request, site))
        return match.address != nullptr && match.address->body == kBodyUnread ? visit.SendLast(*refused)
                                                                              : visit.Send(*refused);
    if (match.address == nullptr)
        return visit.Send(RefuseMethod(match, visit.request.method));
    const Address& address = *match.address;
    if (const auto refused = Refuse(address, visit, site))
        // Nobody knows where a body ends that was meant to be taken.
        return address.body == kBodyUnread ? visit.SendLast(*refused) : visit.Send(*refused);
    if (visit.request.hasBody && address.body != kBodyUnread && !visit.ReadBody())
        return;
    visit.rest = match.rest;
    address.serve(site, visit);
}

class Connection {
public:
    Connection(Descriptor socket, const PeerAddress& peer, SeatPtr seat, const Site& site)
        : m_seat(std::move(seat)), m_stream(std::move(socket)), m_arrival(m_stream), m_peer(peer),
          m_site(site) {}

    // `full`: it is one beyond this limit.
    void Run(std::optional<Refusal> full) {
        m_full = full;
        auto deadline = Clock::now() + m_site.limits.headDeadline;
        Shorten(deadline);
        if (!Begin(deadline)) {
            if (m_full)
                m_site.counters.Refuse(*m_full);
            return;
        }
        m_full ? RunKept(deadline) : RunAll(deadline);
    }

private:
    void RunAll(Clock::time_point deadline) {
        for (unsigned served = 0; served < kMaxRequestsPerConnection; ++served) {
            if (served > 0 || m_stream.IsSecure())
                deadline = Clock::now() + m_site.limits.headDeadline;
            Head head = ReadHead(m_stream, m_site.stop, deadline);
            if (head.result != HeadResult::Complete)
                return RefuseHead(head);
            ParsedRequest parsed = ParseRequest(std::move(head.text));
            if (!parsed.request)
                return Refuse(Refusal::HeadInvalid, parsed.status,
                              "This is no request that the server understands.");
            ++m_site.counters.requests;
            if (!Introduce(*parsed.request))
                return Refuse(Refusal::HeadInvalid, 400, "X-Forwarded-For names no address.");
            parsed.request->arrived = Clock::now();
            Visit visit(m_stream, m_arrival, m_seat, std::move(*parsed.request), m_site);
            Serve(visit, m_site);
            if (!visit.GoesOn())
                return;
        }
    }

    // There are too many connections, but some requests have a place kept.
    void RunKept(Clock::time_point deadline) {
        Head head = ReadHead(m_stream, m_site.stop, deadline);
        ParsedRequest parsed;
        if (head.result == HeadResult::Complete)
            parsed = ParseRequest(std::move(head.text));
        Request request = parsed.request ? std::move(*parsed.request) : Request{};
        const Address* const address = parsed.request ? FindAddress(request).address : nullptr;
        (void)Introduce(request);
        request.keepAlive = false;
        Visit visit(m_stream, m_arrival, m_seat, std::move(request), m_site);
        if (address != nullptr && address->place == Place::Kept)
            return Serve(visit, m_site);
        m_site.counters.Refuse(*m_full);
        visit.SendLast(FullAnswer());
    }

    void Shorten(Clock::time_point& deadline) const {
        if (m_full)
            deadline = std::min(deadline, Clock::now() + kProbeDeadline);
    }

    // What stands before the first request: who a trusted proxy speaks for, and TLS.
    bool Begin(Clock::time_point& deadline) {
        m_byProxy = m_site.proxies.Trusts(m_peer);
        return (!m_byProxy || ReadPreamble(deadline)) && Secure(deadline);
    }

    bool ReadPreamble(Clock::time_point& deadline) {
        std::string seen;
        for (std::size_t needed = 1;;) {
            // Where nothing comes the head does not either, and says so.
            if (WaitForBytes(m_stream.Fd(), needed, &seen, m_site.stop, deadline) != HeadResult::Complete)
                return true;
            const ProxyPreamble preamble = ReadProxyPreamble(seen);
            switch (preamble.kind) {
            case ProxyPreamble::Kind::Absent:
                return true;
            case ProxyPreamble::Kind::Incomplete:
                needed = preamble.size;
                continue;
            case ProxyPreamble::Kind::Invalid:
                m_site.counters.Refuse(Refusal::HeadInvalid);
                return false;
            case ProxyPreamble::Kind::Complete:
                break;
            }
            seen.resize(preamble.size);
            if (::recv(m_stream.Fd(), seen.data(), seen.size(), MSG_DONTWAIT) !=
                static_cast<ssize_t>(seen.size()))
                return false;
            return !preamble.address || CountFor(AddressOf(*preamble.address), deadline);
        }
    }

    // The proxy speaks for `client`. False where the connection is one too many.
    bool CountFor(PeerAddress client, Clock::time_point& deadline) {
        m_peer = std::move(client);
        // What it says in header fields counts only if the client is a proxy as well.
        m_byProxy = m_site.proxies.Trusts(m_peer);
        const Seat::Counted counted = m_seat->CountFor(m_peer);
        m_full = counted.beyond;
        Shorten(deadline);
        return counted.admitted;
    }

    // Enters who sends a request and how. False where a trusted proxy says what makes no sense.
    bool Introduce(Request& request) const {
        request.peer = m_peer;
        request.secure = m_stream.IsSecure();
        if (m_byProxy) {
            const Forwarded forwarded = ReadForwarded(request, m_site.proxies);
            request.secure = request.secure || forwarded.secure;
            if (forwarded.address)
                request.peer = AddressOf(*forwarded.address);
            if (!forwarded.valid)
                return false;
        }
        const auto address = Network::Address(request.peer.text);
        request.toThisMachine = m_peer.owner || (address && address->IsLoopback());
        return true;
    }

    // The first byte tells TLS from plain HTTP, whose requests begin with a letter.
    bool Secure(Clock::time_point deadline) {
        const TlsContextPtr context =
            m_site.certificates != nullptr ? m_site.certificates->Current() : nullptr;
        if (!context)
            return true;
        constexpr char kHandshake = 22; // RFC 8446, 5.1
        std::string first;
        // Where none comes the head does not either, and says so.
        if (WaitForBytes(m_stream.Fd(), 1, &first, m_site.stop, deadline) != HeadResult::Complete ||
            first[0] != kHandshake)
            return true;
        if (m_stream.Secure(*context, m_site.stop, deadline))
            return true;
        m_site.counters.Refuse(Refusal::HandshakeFailed);
        (void)FinishSending(m_stream, m_site.stop); // the alert is to arrive
        return false;
    }

    void RefuseHead(const Head& head) {
        if (head.result == HeadResult::TooLarge)
            Refuse(Refusal::HeadInvalid, 431, "The head of this request is too long.");
        else if (head.result == HeadResult::Timeout && head.anyBytes)
            Refuse(Refusal::HeadTimeout, 408, "The request did not come in time.");
    }

    // Refuses what is no request; the connection ends behind the answer.
    void Refuse(Refusal reason, unsigned status, std::string_view line) {
        m_site.counters.Refuse(reason);
        Visit(m_stream, m_arrival, m_seat, Request{}, m_site).SendLast(Answer::Text(status, line));
    }

    const SeatPtr m_seat; // let go of behind the socket
    Stream m_stream;
    const Arrival m_arrival;
    PeerAddress m_peer;
    bool m_byProxy = false;        // what header fields say of the client counts
    std::optional<Refusal> m_full; // it is beyond this limit
    const Site& m_site;
};

} // namespace

bool Visit::ReadBody() {
    if (request.expectsContinue && !SendBytes("HTTP/1.1 100 Continue\r\n\r\n"))
        return false;
    const auto deadline = Clock::now() + m_site.limits.bodyDeadline;
    const HeadResult read = host::ReadBody(m_stream, request.bodySize, &body, m_site.stop, deadline);
    if (read == HeadResult::Timeout)
        SendLast(Answer::Text(408, "The request did not come in time."));
    return read == HeadResult::Complete;
}

void Visit::Send(const Answer& answer) {
    if (!request.keepAlive || request.hasBody || request.method == "POST")
        return SendLast(answer);
    SendGoingOn(answer);
}

void Visit::SendGoingOn(const Answer& answer) {
    if (!request.keepAlive)
        return SendLast(answer);
    m_goesOn = SendBytes(Serialize(Readable(answer), {.keepAlive = true, .headOnly = IsHead()}));
}

void Visit::SendLast(const Answer& answer) {
    if (SendBytes(Serialize(Readable(answer), {.headOnly = IsHead()})))
        FinishSending(m_stream, m_site.stop);
}

bool Visit::SendUntilArrived(const Answer& answer) {
    if (SendBytes(Serialize(answer, {.headOnly = IsHead()})) &&
        m_arrival.Await(m_stream, m_site.stop, m_site.limits.writeStall)) {
        FinishSending(m_stream, m_site.stop);
        return true;
    }
    // The system throws away what it has not sent yet, and resets the connection.
    const linger hard{1, 0};
    ::setsockopt(m_stream.Fd(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    m_stream.Close();
    return false;
}

Answer Visit::Readable(const Answer& answer) const {
    if (refusals == Form::Problem)
        return Answer::Problem(answer);
    Answer readable = answer.refusal.empty()
                          ? answer
                          : ReadableRefusal(answer, request, m_site.language, m_site.access.WayBack(signIn));
    // Pages with script have it in their heads.
    constexpr std::string_view kEnd = "</main>\n</body>";
    const auto end =
        signIn.session.empty() || readable.headers.contains("ETag") || !readable.type.starts_with("text/html")
            ? std::string::npos
            : readable.body.rfind(kEnd);
    if (end != std::string::npos)
        readable.body.insert(end, AccountLine() + "\n");
    return readable;
}

std::string Visit::AccountLine() const {
    return m_site.account.Line(request, signIn);
}

std::shared_ptr<const void> Visit::TakeHeld(Watches::MayGoOn mayGoOn) {
    struct Held {
        SeatPtr seat;
        Shares::Share place;
        Sessions::Held session;
        Watches::Held watch;
    };
    Held held{m_seat, std::move(place), nullptr, nullptr};
    if (signIn.result == SignIn::Result::Known) {
        const auto end = EndOfConnection(m_stream.Fd());
        if (end && !signIn.token.empty())
            held.session = m_site.access.tokens.Hold(signIn.token, end);
        else if (end && !signIn.session.empty())
            held.session = m_site.access.sessions.Hold(signIn.session, end);
        if (end && mayGoOn)
            held.watch = Watch(std::move(mayGoOn), end);
        const bool hangs = !signIn.session.empty() || !signIn.token.empty();
        if (!end || (hangs && !held.session)) // it has ended since it was looked at
            ::shutdown(m_stream.Fd(), SHUT_RDWR);
    }
    return std::make_shared<const Held>(std::move(held));
}

std::shared_ptr<const void> Visit::TakePlace(Watches::MayGoOn mayGoOn) {
    using Both = std::pair<Shares::Share, Watches::Held>;
    const auto end = EndOfConnection(m_stream.Fd());
    if (!end)
        ::shutdown(m_stream.Fd(), SHUT_RDWR);
    Watches::Held watch = end ? Watch(std::move(mayGoOn), end) : nullptr;
    return std::make_shared<const Both>(std::move(place), std::move(watch));
}

Watches::Held Visit::Watch(Watches::MayGoOn mayGoOn, std::function<void()> end) const {
    const bool visitor = signIn.result == SignIn::Result::Known && !signIn.owner;
    const bool byPassword = signIn.session.empty() && signIn.token.empty();
    return visitor ? m_site.watches.Hold({signIn.credentials.login, signIn.camera},
                                         byPassword ? Watches::By::Password : Watches::By::Other,
                                         std::move(mayGoOn), std::move(end))
                   : nullptr;
}

bool Visit::SendBytes(std::string_view bytes) {
    return SendAll(m_stream, bytes, m_site.stop, m_site.limits.writeStall) == SendResult::Sent;
}

Answer FullAnswer() {
    Answer answer = Answer::Text(503, "This server has as many connections as it takes. Try again soon.");
    answer.headers.emplace("Retry-After", "2");
    return answer;
}

void ServeConnection(Descriptor socket, const PeerAddress& peer, std::optional<Refusal> full, SeatPtr seat,
                     const Site& site) noexcept {
    try {
        Connection connection(std::move(socket), peer, std::move(seat), site);
        connection.Run(full);
    } catch (const std::exception& error) {
        try {
            Console::Get().Log("error", "connection of " + peer.text + " ended: " + error.what());
        } catch (const std::exception&) {
            // Not even the memory for the line.
        }
    }
}

} // namespace host
