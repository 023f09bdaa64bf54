#include "host/site/server.h"

#include <cerrno>
#include <system_error>
#include <utility>

#include <netinet/in.h>
#include <netinet/tcp.h>
#include <poll.h>
#include <sys/socket.h>

#include "host/http/answer.h"
#include "host/log/console.h"
#include "host/site/connection.h"

namespace host {
namespace {

// With no descriptor left, accept fails at once again and again.
constexpr std::chrono::milliseconds kRestWithoutDescriptors{100};

} // namespace

// The place of a connection among all and among those of its address.
class Server::Taken final : public Seat {
public:
    // With m_mutex held.
    Taken(Server& server, std::string key, bool probe)
        : m_server(server), m_key(std::move(key)), m_probe(probe) {
        Enter(m_server.m_all);
        Enter(m_server.m_perAddress[m_key]);
        ++m_server.m_site.counters.open;
        ++m_server.m_taken;
    }
    ~Taken() override {
        Leave();
        const std::lock_guard guard(m_server.m_mutex);
        --m_server.m_taken;
        m_server.m_ended.Signal();
    }
    void Leave() noexcept override {
        const std::lock_guard guard(m_server.m_mutex);
        if (std::exchange(m_left, true))
            return;
        --m_server.m_site.counters.open;
        Drop(m_server.m_all);
        Drop(m_server.m_perAddress.at(m_key));
        Forget(m_key);
    }
    Counted CountFor(const PeerAddress& client) override {
        const std::lock_guard guard(m_server.m_mutex);
        // What may lack the memory comes first.
        const bool trusted = m_server.m_site.proxies.Trusts(client);
        std::string key = client.key;
        Count& ofClient = m_server.m_perAddress[key];
        Drop(m_server.m_all);
        Drop(m_server.m_perAddress.at(m_key));
        const auto full = m_server.LimitReached(ofClient, trusted);
        const Counted counted{full, !full || m_server.HasProbePlace(ofClient)};
        m_probe = full.has_value();
        Enter(m_server.m_all);
        Enter(ofClient);
        m_key.swap(key);
        Forget(key);
        return counted;
    }

private:
    void Enter(Count& count) const noexcept { ++(m_probe ? count.probes : count.held); }
    void Drop(Count& count) const noexcept { --(m_probe ? count.probes : count.held); }
    // An address without connections.
    void Forget(const std::string& key) noexcept {
        const auto found = m_server.m_perAddress.find(key);
        if (found->second.held + found->second.probes == 0)
            m_server.m_perAddress.erase(found);
    }

    Server& m_server;
    // Under the server's mutex.
    std::string m_key;
    bool m_probe; // beyond a limit: it may ask for what has places kept, and nothing else
    bool m_left = false;
};

Server::Server(Listener listener, const Site& site)
    : m_site(site), m_listener(std::move(listener)), m_acceptor([this] { Accept(); }) {}

Server::~Server() {
    m_acceptor.join();
    // All have seen the stop signal and end; none waits for another.
    for (;;) {
        Reap();
        const std::lock_guard guard(m_mutex);
        if (m_threads.empty() && m_finished.empty() && m_taken == 0)
            return;
        (void)WaitFor({.wakeup = &m_ended}, Clock::now() + std::chrono::milliseconds(1));
    }
}

void Server::Accept() {
    for (;;) {
        const Waited waited = WaitFor({.socket = m_listener.socket.Get(),
                                       .socketEvents = POLLIN,
                                       .wakeup = &m_ended,
                                       .stop = &m_site.stop},
                                      Clock::now() + std::chrono::minutes(1));
        if (waited == Waited::Stopped)
            break;
        Reap();
        if (waited != Waited::Ready)
            continue;
        sockaddr_storage address{};
        socklen_t size = sizeof address;
        Descriptor socket(::accept4(m_listener.socket.Get(), reinterpret_cast<sockaddr*>(&address), &size,
                                    SOCK_CLOEXEC | SOCK_NONBLOCK));
        if (socket) {
            Admit(std::move(socket), AddressOf(address));
        } else if (errno == EMFILE || errno == ENFILE || errno == ENOMEM || errno == ENOBUFS) {
            m_site.counters.Refuse(Refusal::TooManyConnections);
            (void)WaitFor({.stop = &m_site.stop}, Clock::now() + kRestWithoutDescriptors);
        }
    }
    m_listener.socket.Close();
}

std::optional<Refusal> Server::LimitReached(const Count& ofAddress, bool trusted) const {
    if (m_all.held >= m_site.limits.maxConnections)
        return Refusal::TooManyConnections;
    // A proxy's connections are those of many, until it has said whose each one is.
    if (!trusted && ofAddress.held >= m_site.limits.maxPerAddress)
        return Refusal::TooManyFromAddress;
    return std::nullopt;
}

bool Server::HasProbePlace(const Count& ofAddress) const {
    return m_all.probes < kProbePlaces && ofAddress.probes < kProbesPerAddress;
}

void Server::Admit(Descriptor socket, PeerAddress peer) {
    Counters& counters = m_site.counters;
    ++counters.accepted;
    const int on = 1;
    ::setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    SeatPtr seat; // its end takes the mutex
    const std::lock_guard guard(m_mutex);
    const auto known = m_perAddress.find(peer.key);
    const Count before = known != m_perAddress.end() ? known->second : Count{};
    const auto full = LimitReached(before, m_site.proxies.Trusts(peer));
    if (full && !HasProbePlace(before))
        return Turn(socket, *full);
    seat = std::make_shared<Taken>(*this, peer.key, full.has_value());
    const auto thread = m_threads.emplace(m_threads.end());
    try {
        // The thread comes to its end only through the mutex that is held here.
        *thread = std::thread(
            [this, thread, taken = std::move(socket), peer = std::move(peer), full, seat]() mutable {
                ServeConnection(std::move(taken), peer, full, std::move(seat), m_site);
                const std::lock_guard ending(m_mutex);
                m_finished.splice(m_finished.end(), m_threads, thread);
                m_ended.Signal();
            });
    } catch (const std::system_error&) {
        m_threads.erase(thread);
        counters.Refuse(Refusal::NoThread);
    }
}

// Says why, if the peer takes it at once; the acceptor waits for nobody.
void Server::Turn(const Descriptor& socket, Refusal reason) const {
    m_site.counters.Refuse(reason);
    const std::string bytes = Serialize(FullAnswer(), {});
    (void)::send(socket.Get(), bytes.data(), bytes.size(), MSG_NOSIGNAL | MSG_DONTWAIT);
    ::shutdown(socket.Get(), SHUT_WR);
}

void Server::Reap() {
    m_ended.Clear();
    Threads finished;
    {
        const std::lock_guard guard(m_mutex);
        finished.swap(m_finished);
    }
    for (std::thread& thread : finished)
        thread.join();
}

} // namespace host
