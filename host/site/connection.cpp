#include "host/site/connection.h"

#include <exception>
#include <string>

#include <poll.h>
#include <sys/socket.h>

#include "host/http/answer.h"
#include "host/http/arrival.h"
#include "host/http/head.h"
#include "host/http/request.h"
#include "host/log/console.h"
#include "host/site/access.h"
#include "host/site/links/pages.h"
#include "host/site/live/live.h"
#include "host/site/live/tiles.h"
#include "host/site/mobile/content.h"
#include "host/site/mobile/source_list.h"
#include "host/site/monitor/health.h"
#include "host/site/pages.h"
#include "host/site/settings/pages.h"
#include "host/site/tiny/pages.h"
#include "host/site/upload.h"
#include "host/site/view/view.h"
#include "platform/text.h"

namespace host {
namespace {

// Behind an answer that closes, what the peer still sends is read for a moment: closing over unread bytes
// would reset the connection and could take the answer with it.
constexpr std::chrono::milliseconds kLinger{500};

class Connection {
public:
    Connection(Descriptor socket, const PeerAddress& peer, const Services& services)
        : m_socket(std::move(socket)), m_arrival(m_socket.Get()), m_peer(peer), m_services(services) {}

    void Run() {
        for (unsigned served = 0; served < kMaxRequestsPerConnection; ++served) {
            Head head =
                ReadHead(m_socket.Get(), m_services.stop, Clock::now() + m_services.limits.headDeadline);
            if (head.result != HeadResult::Complete)
                return RefuseHead(head);
            ParsedRequest parsed = ParseRequest(std::move(head.text));
            if (!parsed.request) {
                m_services.counters.Refuse(Refusal::HeadInvalid);
                Close(Answer::Text(parsed.status, "This is no request that the server understands."));
                return;
            }
            ++m_services.counters.requests;
            m_request = std::move(*parsed.request);
            m_request.peer = m_peer;
            m_request.arrived = Clock::now();
            if (!Serve())
                return;
        }
    }

private:
    void RefuseHead(const Head& head) {
        if (head.result == HeadResult::TooLarge) {
            m_services.counters.Refuse(Refusal::HeadInvalid);
            Close(Answer::Text(431, "The head of this request is too long."));
        } else if (head.result == HeadResult::Timeout && head.anyBytes) {
            m_services.counters.Refuse(Refusal::HeadTimeout);
            Close(Answer::Text(408, "The request did not come in time."));
        }
    }

    // One request. False when the connection is at its end, or not ours any more.
    bool Serve() {
        if (const auto probe = ProbeAnswer(m_request, m_services))
            return Send(*probe);
        const std::u16string path = HandlerPath(m_request);
        if (const auto handler = m_services.handlers.HandlerOf(path)) {
            std::int32_t stream = 0;
            (void)handler->IsStreamPath(path.c_str(), &stream);
            if (stream == 0)
                return ServeHandler(*handler);
            return IsStreamAddress(path) ? ServeStream(*handler)
                                         : Send(Answer::Text(404, "There is nothing here."));
        }
        if (IsSettingsPath(m_request.path))
            return ServeSettings();
        if (IsLinksPath(m_request.path))
            return ServeLinks();
        if (const auto refused = RefuseMethod())
            return Send(*refused);
        if (IsGetPath(m_request.path))
            return ServeGet();
        // What a phone asks for, with the login that it views with.
        if (IsSourceListPath(m_request.path)) {
            const auto refused = CheckAccess(m_request, Purpose::View, m_services);
            return Send(refused ? *refused : SourceListAnswer(m_request, m_services));
        }
        if (const auto refused = CheckAccess(m_request, Purpose::Watch, m_services))
            return Send(*refused);
        if (IsTinyPath(m_request.path))
            return Send(TinyAnswer(m_request, m_services));
        if (m_request.path == "/tiles")
            return ServeTilesPath();
        if (m_request.path.starts_with("/view/"))
            return ServeViewPath();
        if (m_request.path.starts_with("/live/")) {
            const FeedPtr feed = FeedOfPath(m_request.path, "/live/", "", m_services);
            if (!feed)
                return Send(Answer::Text(404, "There is no camera of that name."));
            ServeLive(m_socket.Get(), feed, m_request.method == "HEAD", m_services);
            return false;
        }
        return Send(PageAnswer(m_request, m_services));
    }

    bool ServeStream(IWebHandler& handler) {
        const bool upload = m_request.method == "POST";
        if (!upload && m_request.method != "GET")
            return Send(Answer::Text(405, "A stream is opened with POST or GET."));
        if (const auto refused = CheckAccess(m_request, upload ? Purpose::Upload : Purpose::View, m_services))
            return Close(*refused), false;
        HandOver(std::move(m_socket), m_request, handler, m_services);
        return false;
    }

    bool ServeHandler(IWebHandler& handler) {
        if (const auto refused = RefuseMethod())
            return Send(*refused);
        // The settings hold the passwords of the cameras.
        const auto decoded = PercentDecode(m_request.path);
        const bool settings = !decoded || decoded->find("config") != std::string::npos;
        const Purpose purpose = settings ? Purpose::Settings : Purpose::Mobile;
        if (const auto refused = CheckAccess(m_request, purpose, m_services))
            return Send(*refused);
        return Send(HandlerAnswer(m_request, handler));
    }

    bool ServeSettings() {
        if (const auto refused = CheckAccess(m_request, Purpose::Settings, m_services))
            return Send(*refused);
        if (const auto refused = RefuseSettings(m_request, m_services))
            return Send(*refused);
        std::string body;
        if (m_request.hasBody) {
            if (m_request.expectsContinue && !SendBytes("HTTP/1.1 100 Continue\r\n\r\n"))
                return false;
            const auto deadline = Clock::now() + m_services.limits.bodyDeadline;
            const HeadResult read =
                ReadBody(m_socket.Get(), m_request.bodySize, &body, m_services.stop, deadline);
            if (read == HeadResult::Timeout)
                return Close(Answer::Text(408, "The request did not come in time.")), false;
            if (read != HeadResult::Complete)
                return false;
        }
        return Send(SettingsAnswer(m_request, body, m_services));
    }

    // A link holds a camera's password, so making one is the administrator's, and the demo's on this machine.
    bool ServeLinks() {
        const Purpose purpose = m_services.demo ? Purpose::Watch : Purpose::Settings;
        if (const auto refused = CheckAccess(m_request, purpose, m_services))
            return Send(*refused);
        if (const auto refused = RefuseForeignPage())
            return Send(*refused);
        return Send(LinksAnswer(m_request, m_services));
    }

    bool ServeGet() {
        GetReply reply = GetAnswer(m_request, m_services);
        if (!reply.delivery)
            return Send(reply.answer);
        if (!SendBytes(Serialize(reply.answer, {})) ||
            !m_arrival.Await(m_services.stop, m_services.limits.writeStall)) {
            // Nothing of it may arrive later: the link is good for somebody else from here on.
            Abort();
            return false;
        }
        reply.delivery->Done();
        reply.delivery.reset();
        Linger();
        return false;
    }

    // Programs send no Origin; a page of somebody else's sends its own.
    [[nodiscard]] std::optional<Answer> RefuseForeignPage() const {
        if (m_request.Field("Origin").empty() || IsSameOrigin(m_request.Field("Origin"), m_request.Host()))
            return std::nullopt;
        m_services.counters.Refuse(Refusal::ForeignHost);
        return Answer::Text(403, "This stream is for the page of this server.");
    }

    bool ServeViewPath() {
        SourcePtr source = SourceOfPath(m_request.path, m_services);
        if (!source)
            return Send(Answer::Text(404, "There is no source of that name."));
        if (!m_request.wantsWebSocket)
            return Send(NamedAsset("viewer/index.html", m_request));
        if (const auto refused = RefuseForeignPage())
            return Send(*refused);
        ServeView(std::move(m_socket), m_request, std::move(source), m_services);
        return false;
    }

    bool ServeTilesPath() {
        if (!m_request.wantsWebSocket)
            return Send(Answer::Text(426, "This is a WebSocket."));
        if (const auto refused = RefuseForeignPage())
            return Send(*refused);
        ServeTiles(std::move(m_socket), m_request, m_services);
        return false;
    }

    [[nodiscard]] std::optional<Answer> RefuseMethod() const {
        if (m_request.method != "GET" && m_request.method != "HEAD") {
            Answer answer = Answer::Text(405, "Only GET and HEAD are known here.");
            answer.headers["Allow"] = "GET, HEAD";
            return answer;
        }
        if (m_request.hasBody)
            return Answer::Text(413, "No request to this server has a body.");
        return std::nullopt;
    }

    bool Send(const Answer& answer) {
        if (!m_request.keepAlive || m_request.hasBody || m_request.method == "POST")
            return Close(answer), false;
        return SendBytes(Serialize(answer, {.keepAlive = true, .headOnly = m_request.method == "HEAD"}));
    }

    void Close(const Answer& answer) {
        if (SendBytes(Serialize(answer, {.headOnly = m_request.method == "HEAD"})))
            Linger();
    }

    bool SendBytes(std::string_view bytes) {
        m_arrival.Sent(bytes.size());
        return SendAll(m_socket.Get(), bytes, m_services.stop, m_services.limits.writeStall) ==
               SendResult::Sent;
    }

    void Linger() {
        ::shutdown(m_socket.Get(), SHUT_WR);
        const auto deadline = Clock::now() + kLinger;
        std::string rest(4096, '\0');
        while (WaitFor({.socket = m_socket.Get(), .socketEvents = POLLIN, .stop = &m_services.stop},
                       deadline) == Waited::Ready) {
            if (::recv(m_socket.Get(), rest.data(), rest.size(), MSG_DONTWAIT) <= 0)
                return;
        }
    }

    // What the system has not sent yet is thrown away, and the peer is told so.
    void Abort() {
        const linger hard{1, 0};
        ::setsockopt(m_socket.Get(), SOL_SOCKET, SO_LINGER, &hard, sizeof hard);
        m_socket.Close();
    }

    Descriptor m_socket;
    Arrival m_arrival;
    const PeerAddress& m_peer;
    const Services& m_services;
    Request m_request;
};

} // namespace

void ServeConnection(Descriptor socket, const PeerAddress& peer, const Services& services) noexcept {
    try {
        Connection(std::move(socket), peer, services).Run();
    } catch (const std::exception& error) {
        try {
            Console::Get().Log("error", "connection of " + peer.text + " ended: " + error.what());
        } catch (const std::exception&) {
            // Not even the memory for the line.
        }
    }
}

} // namespace host
