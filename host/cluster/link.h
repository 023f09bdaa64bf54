// This host's connection to the message engine (NATS), over which the hosts of a cluster reach each other.
//
// It looks for a server by itself, at the start and whenever one is lost, for as long as it lives; a server
// that answers nothing is given up after a second and a half. What is said over it is sealed (seal.h); the
// engine sees who talks to whom, how much and when.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include <nats/nats.h>

#include "host/cluster/seal.h"

namespace host::cluster {

// What the engine's library does not take, in a line for a person.
class LinkError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
};

template <auto Free>
struct Destroyed {
    template <class Object>
    void operator()(Object* object) const noexcept {
        (void)Free(object);
    }
};
using MessagePtr = std::unique_ptr<natsMsg, Destroyed<&natsMsg_Destroy>>;
// The library's reading thread uses a subscription that it has just looked up without holding it, so it must
// have passed on before the memory may go.
struct EndSubscription {
    natsConnection* engine = nullptr;
    void operator()(natsSubscription* subscription) const noexcept;
};
using SubscriptionPtr = std::unique_ptr<natsSubscription, EndSubscription>;
using JetStreamPtr = std::unique_ptr<jsCtx, Destroyed<&jsCtx_Destroy>>;

inline std::string_view TextOf(natsMsg* message) noexcept {
    return {natsMsg_GetData(message), static_cast<std::size_t>(natsMsg_GetDataLength(message))};
}

struct LinkOptions {
    std::vector<std::string> servers; // "nats://HOST:PORT", or tls:
    std::string credentials{};        // a file of the engine's; empty: none
    std::string authority{};          // for tls: a file of certificates; empty: the system's
    std::string certificate{};        // for a server that asks for one, with its key
    std::string key{};
};

class Link {
public:
    using Clock = std::chrono::steady_clock;
    // Lines for the log; any thread.
    using Tell = std::function<void(const std::string& line)>;

    // Returns without waiting for a server for longer than it takes to try each once. Throws LinkError.
    Link(const LinkOptions& options, std::shared_ptr<const Sealer> sealer, Tell tell);
    Link(const Link&) = delete;
    Link& operator=(const Link&) = delete;
    // After all that uses it.
    ~Link();

    struct State {
        bool connected = false;
        std::string server;            // "HOST:PORT"; empty while there is none
        std::uint64_t connections = 0; // how often one was lost and found again
        std::uint64_t refused = 0;     // texts that were not sealed, or not for their place
        std::uint64_t messagesIn = 0;
        std::uint64_t messagesOut = 0;
        std::uint64_t bytesIn = 0;
        std::uint64_t bytesOut = 0;
    };
    [[nodiscard]] State Now() const;
    [[nodiscard]] bool IsConnected() const noexcept;
    // Changes when another connection took the place of one that was lost.
    [[nodiscard]] std::uint64_t Connections() const noexcept;
    void Refuse(const std::string& what); // counts one, and tells of some
    void Say(const std::string& line) const { m_tell(line); }
    [[nodiscard]] const std::shared_ptr<const Sealer>& Seals() const noexcept { return m_sealer; }
    [[nodiscard]] natsConnection* Engine() const noexcept { return m_connection.get(); }

    // An answer is for its question alone. `then` is told once, on a thread of the link that must not be kept
    // waiting: the answer, or nothing when none has come in time or nobody listens there. `epoch` is what the
    // answer has to be sealed for.
    using Then = std::function<void(std::optional<Opened> answer)>;
    void Ask(const std::string& subject, std::string_view text, std::uint64_t epoch,
             std::chrono::milliseconds within, Then then);

    // To whoever listens for that subject, this host as well; lost while there is no server.
    void Announce(const std::string& subject, std::string_view text);

    // Takes the questions that come for a subject, or the announcements, on a thread of its own, until it
    // goes. They may come twice: whoever carries out something by them looks whether they are new
    // (Freshness).
    class Service {
    public:
        // Once, from any thread while the link is there, with the epoch that the answer is sealed for; or
        // never.
        using Reply = std::function<void(std::string_view text, std::uint64_t epoch)>;
        using Respond = std::function<void(const Opened& question, Reply reply)>;
        using Hear = std::function<void(const Opened& announcement)>;
        Service(Link& link, std::string subject, Respond respond);
        Service(Link& link, std::string subject, Hear hear);
        Service(const Service&) = delete;
        Service& operator=(const Service&) = delete;
        ~Service();

    private:
        Service(Link& link, std::string subject, Respond respond, Hear hear);
        void Run();
        void Take(natsMsg* message);

        Link& m_link;
        const std::string m_subject;
        const Respond m_respond;
        const Hear m_hear; // one of the two
        SubscriptionPtr m_subscription;
        std::atomic<bool> m_stop{false};
        std::thread m_thread;
    };

private:
    struct Pending {
        std::string subject;
        std::string nonce;
        std::uint64_t epoch = 0;
        Clock::time_point until;
        Then then;
    };
    void RunAnswers();
    void TakeAnswer(natsMsg* message);
    void GiveUp(Clock::time_point now); // what has waited long enough

    const std::shared_ptr<const Sealer> m_sealer;
    const Tell m_tell;
    std::unique_ptr<natsConnection, Destroyed<&natsConnection_Destroy>> m_connection;
    std::string m_inbox; // answers come to m_inbox.NUMBER
    SubscriptionPtr m_answers;
    std::atomic<std::uint64_t> m_refused{0};
    std::atomic<Clock::rep> m_toldAt{0};
    mutable std::mutex m_mutex; // the members below
    std::map<std::uint64_t, Pending> m_pending;
    std::uint64_t m_lastNumber = 0;
    std::atomic<bool> m_stop{false};
    std::thread m_thread;
};

} // namespace host::cluster
