#include "host/cluster/link.h"

#include <algorithm>
#include <charconv>
#include <utility>

namespace host::cluster {
namespace {

// A server that does not answer two of them is lost: within a second and a half.
constexpr std::int64_t kPingEveryMs = 500;
constexpr int kPingsOut = 2;
constexpr std::int64_t kReconnectAfterMs = 100;
constexpr std::int64_t kConnectWithinMs = 2000;
// What is published while there is no server is late when there is one again. The library keeps at least what
// fits here; askers have given up by then.
constexpr int kKeptWhileAwayBytes = 64 * 1024;
// How late it is noticed that nobody answers, and that a thread is to end.
constexpr std::int64_t kLookEveryMs = 20;
constexpr std::int64_t kIdleMs = 100;
constexpr std::chrono::seconds kTellEvery{10};
constexpr std::int64_t kFlushWithinMs = 1000;
// Without a connection: for the rest of what was read of the one that was lost just now.
constexpr std::int64_t kRestWithinMs = 50;
constexpr int kMostFlushes = 10;

void CheckLink(natsStatus status, const std::string& what) {
    if (status != NATS_OK)
        throw LinkError(what + ": " + natsStatus_GetText(status));
}

using OptionsPtr = std::unique_ptr<natsOptions, Destroyed<&natsOptions_Destroy>>;

OptionsPtr EngineOptions(const LinkOptions& options, const std::string& name) {
    natsOptions* made = nullptr;
    CheckLink(natsOptions_Create(&made), "the engine's library cannot be used");
    OptionsPtr engine(made);
    if (options.servers.empty())
        throw LinkError("no server of the engine is named");
    std::vector<const char*> servers;
    bool secure = false;
    for (const std::string& server : options.servers) {
        servers.push_back(server.c_str());
        secure = secure || server.starts_with("tls:");
    }
    CheckLink(natsOptions_SetServers(made, servers.data(), static_cast<int>(servers.size())),
              "the engine's servers cannot be taken");
    natsStatus status = natsOptions_SetName(made, name.c_str());
    const auto set = [&](natsStatus outcome) { status = status == NATS_OK ? outcome : status; };
    set(natsOptions_SetTimeout(made, kConnectWithinMs));
    set(natsOptions_SetPingInterval(made, kPingEveryMs));
    set(natsOptions_SetMaxPingsOut(made, kPingsOut));
    set(natsOptions_SetReconnectWait(made, kReconnectAfterMs));
    set(natsOptions_SetReconnectJitter(made, kReconnectAfterMs / 2, kReconnectAfterMs / 2));
    set(natsOptions_SetMaxReconnect(made, -1));
    set(natsOptions_SetReconnectBufSize(made, kKeptWhileAwayBytes));
    set(natsOptions_SetSendAsap(made, true));
    // Without one, the library writes to standard error.
    set(natsOptions_SetErrorHandler(
        made, [](natsConnection*, natsSubscription*, natsStatus, void*) {}, nullptr));
    set(natsOptions_SetRetryOnFailedConnect(
        made, true, [](natsConnection*, void*) {}, nullptr));
    CheckLink(status, "the engine's library does not take its settings");
    if (!options.credentials.empty())
        CheckLink(natsOptions_SetUserCredentialsFromFiles(made, options.credentials.c_str(), nullptr),
                  "the credentials " + options.credentials + " cannot be used");
    if (secure)
        CheckLink(natsOptions_SetSecure(made, true), "the engine's library has no TLS");
    if (!options.authority.empty())
        CheckLink(natsOptions_LoadCATrustedCertificates(made, options.authority.c_str()),
                  "the certificates " + options.authority + " cannot be used");
    if (!options.certificate.empty())
        CheckLink(natsOptions_LoadCertificatesChain(made, options.certificate.c_str(), options.key.c_str()),
                  "the certificate " + options.certificate + " and its key cannot be used");
    return engine;
}

struct Traffic {
    std::uint64_t messagesIn = 0;
    std::uint64_t messagesOut = 0;
    std::uint64_t bytesIn = 0;
    std::uint64_t bytesOut = 0;
    std::uint64_t reconnects = 0;
};

Traffic TrafficOf(natsConnection* connection) noexcept {
    natsStatistics* made = nullptr;
    Traffic traffic;
    if (natsStatistics_Create(&made) != NATS_OK)
        return traffic;
    const std::unique_ptr<natsStatistics, Destroyed<&natsStatistics_Destroy>> statistics(made);
    if (natsConnection_GetStats(connection, made) == NATS_OK)
        (void)natsStatistics_GetCounts(made, &traffic.messagesIn, &traffic.bytesIn, &traffic.messagesOut,
                                       &traffic.bytesOut, &traffic.reconnects);
    return traffic;
}

} // namespace

void EndSubscription::operator()(natsSubscription* subscription) const noexcept {
    (void)natsSubscription_Unsubscribe(subscription);
    // What was read before this is answered has been handed on. Without a connection nothing is read.
    natsStatus status = NATS_TIMEOUT;
    const auto isConnected = [this] { return natsConnection_Status(engine) == NATS_CONN_STATUS_CONNECTED; };
    bool reads = isConnected();
    for (int tries = 0; tries < kMostFlushes && status == NATS_TIMEOUT && (reads || tries == 0); ++tries) {
        status = natsConnection_FlushTimeout(engine, reads ? kFlushWithinMs : kRestWithinMs);
        reads = isConnected();
    }
    if (status != NATS_TIMEOUT || !reads) // else it is left where it is
        natsSubscription_Destroy(subscription);
}

Link::Link(const LinkOptions& options, std::shared_ptr<const Sealer> sealer, Tell tell)
    : m_sealer(std::move(sealer)), m_tell(std::move(tell)) {
    const OptionsPtr engine = EngineOptions(options, "morrowstream " + m_sealer->Node());
    natsConnection* connection = nullptr;
    const natsStatus status = natsConnection_Connect(&connection, engine.get());
    m_connection.reset(connection);
    if (status != NATS_OK && status != NATS_NOT_YET_CONNECTED)
        throw LinkError(std::string("the engine cannot be connected to: ") + natsStatus_GetText(status));
    natsInbox* inbox = nullptr;
    CheckLink(natsInbox_Create(&inbox), "no inbox");
    m_inbox = inbox;
    natsInbox_Destroy(inbox);
    natsSubscription* answers = nullptr;
    CheckLink(natsConnection_SubscribeSync(&answers, connection, (m_inbox + ".*").c_str()),
              "no subscription");
    m_answers = {answers, {connection}};
    m_thread = std::thread([this] { RunAnswers(); });
}

Link::~Link() {
    m_stop = true;
    m_thread.join();
    GiveUp(Clock::time_point::max());
    m_answers.reset();
    natsConnection_Close(m_connection.get());
}

bool Link::IsConnected() const noexcept {
    return natsConnection_Status(m_connection.get()) == NATS_CONN_STATUS_CONNECTED;
}

std::uint64_t Link::Connections() const noexcept {
    return TrafficOf(m_connection.get()).reconnects;
}

Link::State Link::Now() const {
    const Traffic traffic = TrafficOf(m_connection.get());
    State state{.connected = IsConnected(),
                .server = {},
                .connections = traffic.reconnects,
                .refused = m_refused,
                .messagesIn = traffic.messagesIn,
                .messagesOut = traffic.messagesOut,
                .bytesIn = traffic.bytesIn,
                .bytesOut = traffic.bytesOut};
    std::array<char, 256> url{};
    if (state.connected &&
        natsConnection_GetConnectedUrl(m_connection.get(), url.data(), url.size()) == NATS_OK) {
        state.server = url.data();
        // Names and passwords may stand before the address.
        state.server.erase(0,
                           state.server.find("://") == std::string::npos ? 0 : state.server.find("://") + 3);
        state.server.erase(0, state.server.rfind('@') == std::string::npos ? 0 : state.server.rfind('@') + 1);
    }
    return state;
}

void Link::Refuse(const std::string& what) {
    ++m_refused;
    const auto now = Clock::now().time_since_epoch().count();
    auto told = m_toldAt.load();
    if (told != 0 && now - told < Clock::duration(kTellEvery).count())
        return;
    if (m_toldAt.compare_exchange_strong(told, now))
        m_tell(what + " (" + std::to_string(m_refused) + " such texts so far)");
}

void Link::Ask(const std::string& subject, std::string_view text, std::uint64_t epoch,
               std::chrono::milliseconds within, Then then) {
    SealId id;
    const std::string sealed =
        m_sealer->Seal({.kind = SealedFor::Kind::Request, .place = subject}, text, &id);
    std::uint64_t number = 0;
    {
        const std::lock_guard guard(m_mutex);
        number = ++m_lastNumber;
        m_pending.emplace(number,
                          Pending{subject, id.Bytes(), epoch, Clock::now() + within, std::move(then)});
    }
    const std::string reply = m_inbox + "." + std::to_string(number);
    if (IsConnected() &&
        natsConnection_PublishRequest(m_connection.get(), subject.c_str(), reply.c_str(), sealed.data(),
                                      static_cast<int>(sealed.size())) == NATS_OK)
        return;
    // It is told on the link's thread all the same.
    const std::lock_guard guard(m_mutex);
    if (const auto found = m_pending.find(number); found != m_pending.end())
        found->second.until = Clock::now();
}

void Link::Announce(const std::string& subject, std::string_view text) {
    if (!IsConnected())
        return;
    const std::string sealed =
        m_sealer->Seal({.kind = SealedFor::Kind::Announcement, .place = subject}, text);
    (void)natsConnection_Publish(m_connection.get(), subject.c_str(), sealed.data(),
                                 static_cast<int>(sealed.size()));
}

void Link::RunAnswers() {
    while (!m_stop) {
        natsMsg* taken = nullptr;
        bool waiting = false;
        {
            const std::lock_guard guard(m_mutex);
            waiting = !m_pending.empty();
        }
        const natsStatus status =
            natsSubscription_NextMsg(&taken, m_answers.get(), waiting ? kLookEveryMs : kIdleMs);
        const MessagePtr message(taken);
        if (message)
            TakeAnswer(message.get());
        else if (status != NATS_TIMEOUT && status != NATS_OK)
            std::this_thread::sleep_for(std::chrono::milliseconds(kLookEveryMs));
        GiveUp(Clock::now());
    }
}

void Link::TakeAnswer(natsMsg* message) {
    const std::string_view subject = natsMsg_GetSubject(message);
    std::uint64_t number = 0;
    const std::string_view digits = subject.substr(std::min(subject.size(), m_inbox.size() + 1));
    if (std::from_chars(digits.data(), digits.data() + digits.size(), number).ec != std::errc{})
        return;
    std::string asked;
    std::string nonce;
    std::uint64_t epoch = 0;
    {
        const std::lock_guard guard(m_mutex);
        const auto found = m_pending.find(number);
        if (found == m_pending.end())
            return; // it was too late
        asked = found->second.subject;
        nonce = found->second.nonce;
        epoch = found->second.epoch;
    }
    // That nobody listens is the engine's word, or that of anybody who wants to be taken for it: whoever asks
    // has no more of it than of silence, and asks again.
    std::optional<Opened> answer;
    if (!natsMsg_IsNoResponders(message)) {
        answer =
            m_sealer->Open({.kind = SealedFor::Kind::Answer, .place = asked, .epoch = epoch, .nonce = nonce},
                           TextOf(message));
        if (!answer) // the right one may come yet
            return Refuse("an answer that no host of the cluster has given is refused");
    }
    Then then;
    {
        const std::lock_guard guard(m_mutex);
        auto taken = m_pending.extract(number);
        if (taken.empty())
            return;
        then = std::move(taken.mapped().then);
    }
    then(std::move(answer));
}

void Link::GiveUp(Clock::time_point now) {
    std::vector<Pending> over;
    {
        const std::lock_guard guard(m_mutex);
        for (auto item = m_pending.begin(); item != m_pending.end();) {
            if (item->second.until > now) {
                ++item;
                continue;
            }
            over.push_back(std::move(item->second));
            item = m_pending.erase(item);
        }
    }
    for (const Pending& pending : over)
        pending.then(std::nullopt);
}

Link::Service::Service(Link& link, std::string subject, Respond respond)
    : Service(link, std::move(subject), std::move(respond), nullptr) {}

Link::Service::Service(Link& link, std::string subject, Hear hear)
    : Service(link, std::move(subject), nullptr, std::move(hear)) {}

Link::Service::Service(Link& link, std::string subject, Respond respond, Hear hear)
    : m_link(link), m_subject(std::move(subject)), m_respond(std::move(respond)), m_hear(std::move(hear)) {
    natsSubscription* made = nullptr;
    CheckLink(natsConnection_SubscribeSync(&made, link.Engine(), m_subject.c_str()),
              "no subscription to " + m_subject);
    m_subscription = {made, {link.Engine()}};
    m_thread = std::thread([this] { Run(); });
}

Link::Service::~Service() {
    m_stop = true;
    m_thread.join();
}

void Link::Service::Run() {
    while (!m_stop) {
        natsMsg* taken = nullptr;
        const natsStatus status = natsSubscription_NextMsg(&taken, m_subscription.get(), kIdleMs);
        const MessagePtr message(taken);
        if (message)
            Take(message.get());
        else if (status != NATS_TIMEOUT && status != NATS_OK)
            std::this_thread::sleep_for(std::chrono::milliseconds(kLookEveryMs));
    }
}

void Link::Service::Take(natsMsg* message) {
    const Sealer& sealer = *m_link.m_sealer;
    if (m_hear) {
        const auto announced =
            sealer.Open({.kind = SealedFor::Kind::Announcement, .place = m_subject}, TextOf(message));
        return announced ? m_hear(*announced)
                         : m_link.Refuse("an announcement that no host of the cluster has made is refused");
    }
    const auto question =
        sealer.Open({.kind = SealedFor::Kind::Request, .place = m_subject}, TextOf(message));
    if (!question)
        return m_link.Refuse("a question that no host of the cluster has asked is refused");
    const char* const reply = natsMsg_GetReply(message);
    if (reply == nullptr)
        return;
    m_respond(*question, [&link = m_link, subject = m_subject, nonce = question->id.Bytes(),
                          to = std::string(reply)](std::string_view text, std::uint64_t epoch) {
        const std::string sealed = link.m_sealer->Seal(
            {.kind = SealedFor::Kind::Answer, .place = subject, .epoch = epoch, .nonce = nonce}, text);
        (void)natsConnection_Publish(link.Engine(), to.c_str(), sealed.data(),
                                     static_cast<int>(sealed.size()));
    });
}

} // namespace host::cluster
