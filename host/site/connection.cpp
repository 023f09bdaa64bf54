#include "host/site/connection.h"

#include <algorithm>
#include <exception>
#include <optional>
#include <string>

#include <poll.h>
#include <sys/socket.h>

#include "host/html/page.h"
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

std::optional<Answer> RefuseOrigin(const Address& address, const Request& request, const Site& site) {
    if (address.from != From::Anywhere && IsForeign(request)) {
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

std::optional<Answer> TakePlace(const Address& address, Visit& visit, const Site& site) {
    if (address.place != Place::Stream && address.place != Place::Viewer)
        return std::nullopt;
    Shares& shares = address.place == Place::Stream ? site.shares.streams : site.shares.viewers;
    return TakeShare(shares, visit.request, visit.signIn.credentials.login, site.counters, &visit.place);
}

std::optional<Answer> Refuse(const Address& address, Visit& visit, const Site& site) {
    if (auto refused = site.access.Refuse(visit.request, address.who, visit.signIn))
        return refused;
    if (auto refused = RefuseOrigin(address, visit.request, site))
        return refused;
    if (auto refused = RefuseBody(address, visit.request))
        return refused;
    return TakePlace(address, visit, site);
}

void Serve(Visit& visit, const Site& site) {
    const AddressMatch match = FindAddress(visit.request);
    if (visit.request.lacksHost && match.pattern->host == Host::Named) {
        site.counters.Refuse(Refusal::HeadInvalid);
        return visit.SendLast(Answer::Text(400, "A request of HTTP/1.1 names the host that it is for."));
    }
    if (match.address == nullptr)
        return visit.Send(RefuseMethod(match, visit.request.method));
    const Address& address = *match.address;
    if (const auto refused = Refuse(address, visit, site))
        // Nobody knows where a body ends that was meant to be taken.
        return address.body == kBodyUnread ? visit.SendLast(*refused) : visit.Send(*refused);
    if (visit.request.hasBody && address.body != kBodyUnread && !visit.ReadBody())
        return;
    visit.rest = match.rest;
    visit.refusals = address.refusals;
    address.serve(site, visit);
}

class Connection {
public:
    Connection(Descriptor socket, const PeerAddress& peer, const Site& site)
        : m_socket(std::move(socket)), m_arrival(m_socket.Get()), m_peer(peer), m_site(site) {}

    void Run() {
        for (unsigned served = 0; served < kMaxRequestsPerConnection; ++served) {
            Head head = ReadHead(m_socket.Get(), m_site.stop, Clock::now() + m_site.limits.headDeadline);
            if (head.result != HeadResult::Complete)
                return RefuseHead(head);
            ParsedRequest parsed = ParseRequest(std::move(head.text));
            if (!parsed.request)
                return Refuse(Refusal::HeadInvalid, parsed.status,
                              "This is no request that the server understands.");
            ++m_site.counters.requests;
            parsed.request->peer = m_peer;
            parsed.request->arrived = Clock::now();
            Visit visit(m_socket, m_arrival, std::move(*parsed.request), m_site);
            Serve(visit, m_site);
            if (!visit.GoesOn())
                return;
        }
    }

    // There are too many connections, but some requests have a place kept.
    void RunKept(Refusal full) {
        const auto deadline = Clock::now() + std::min(kProbeDeadline, m_site.limits.headDeadline);
        Head head = ReadHead(m_socket.Get(), m_site.stop, deadline);
        ParsedRequest parsed;
        if (head.result == HeadResult::Complete)
            parsed = ParseRequest(std::move(head.text));
        Request request = parsed.request ? std::move(*parsed.request) : Request{};
        const Address* const address = parsed.request ? FindAddress(request).address : nullptr;
        request.peer = m_peer;
        request.keepAlive = false;
        Visit visit(m_socket, m_arrival, std::move(request), m_site);
        if (address != nullptr && address->place == Place::Kept)
            return Serve(visit, m_site);
        m_site.counters.Refuse(full);
        visit.SendLast(FullAnswer());
    }

private:
    void RefuseHead(const Head& head) {
        if (head.result == HeadResult::TooLarge)
            Refuse(Refusal::HeadInvalid, 431, "The head of this request is too long.");
        else if (head.result == HeadResult::Timeout && head.anyBytes)
            Refuse(Refusal::HeadTimeout, 408, "The request did not come in time.");
    }

    // Refuses what is no request; the connection ends behind the answer.
    void Refuse(Refusal reason, unsigned status, std::string_view line) {
        m_site.counters.Refuse(reason);
        Visit(m_socket, m_arrival, Request{}, m_site).SendLast(Answer::Text(status, line));
    }

    Descriptor m_socket;
    Arrival m_arrival;
    const PeerAddress& m_peer;
    const Site& m_site;
};

} // namespace

bool Visit::ReadBody() {
    if (request.expectsContinue && !SendBytes("HTTP/1.1 100 Continue\r\n\r\n"))
        return false;
    const auto deadline = Clock::now() + m_site.limits.bodyDeadline;
    const HeadResult read = host::ReadBody(m_socket.Get(), request.bodySize, &body, m_site.stop, deadline);
    if (read == HeadResult::Timeout)
        SendLast(Answer::Text(408, "The request did not come in time."));
    return read == HeadResult::Complete;
}

void Visit::Send(const Answer& answer) {
    if (!request.keepAlive || request.hasBody || request.method == "POST")
        return SendLast(answer);
    m_goesOn = SendBytes(Serialize(Readable(answer), {.keepAlive = true, .headOnly = IsHead()}));
}

void Visit::SendLast(const Answer& answer) {
    if (SendBytes(Serialize(Readable(answer), {.headOnly = IsHead()})))
        FinishSending(m_socket.Get(), m_site.stop);
}

bool Visit::SendUntilArrived(const Answer& answer) {
    if (SendBytes(Serialize(answer, {.headOnly = IsHead()})) &&
        m_arrival.Await(m_site.stop, m_site.limits.writeStall)) {
        FinishSending(m_socket.Get(), m_site.stop);
        return true;
    }
    // The system throws away what it has not sent yet, and resets the connection.
    const linger hard{1, 0};
    ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
    m_socket.Close();
    return false;
}

Descriptor Visit::Take() {
    return std::move(m_socket);
}

int Visit::Last() {
    return m_socket.Get();
}

Answer Visit::Readable(const Answer& answer) const {
    return answer.refusal.empty()
               ? answer
               : ReadableRefusal(answer, request, m_site.language, m_site.access.WayBack(signIn));
}

bool Visit::SendBytes(std::string_view bytes) {
    m_arrival.Sent(bytes.size());
    return SendAll(m_socket.Get(), bytes, m_site.stop, m_site.limits.writeStall) == SendResult::Sent;
}

Answer FullAnswer() {
    Answer answer = Answer::Text(503, "This server has as many connections as it takes. Try again soon.");
    answer.headers.emplace("Retry-After", "2");
    return answer;
}

void ServeConnection(Descriptor socket, const PeerAddress& peer, std::optional<Refusal> full,
                     const Site& site) noexcept {
    try {
        Connection connection(std::move(socket), peer, site);
        full ? connection.RunKept(*full) : connection.Run();
    } catch (const std::exception& error) {
        try {
            Console::Get().Log("error", "connection of " + peer.text + " ended: " + error.what());
        } catch (const std::exception&) {
            // Not even the memory for the line.
        }
    }
}

} // namespace host
