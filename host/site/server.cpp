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

Server::Server(Listener listener, const Site& site)
    : m_site(site), m_listener(std::move(listener)), m_acceptor([this] { Accept(); }) {}

Server::~Server() {
    m_acceptor.join();
    // Each thread has seen the stop signal and ends; none waits for another.
    for (;;) {
        Reap();
        const std::lock_guard guard(m_mutex);
        if (m_clients.empty() && m_finished.empty())
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
    // A proxy's connections are those of many.
    if (!trusted && ofAddress.held >= m_site.limits.maxPerAddress)
        return Refusal::TooManyFromAddress;
    return std::nullopt;
}

void Server::Leave(Client& client) {
    if (std::exchange(client.left, true))
        return;
    --m_site.counters.open;
    const auto ofAddress = m_perAddress.find(client.peer.key);
    for (Count* const count : {&m_all, &ofAddress->second})
        --(client.full ? count->probes : count->held);
    if (ofAddress->second.held + ofAddress->second.probes == 0)
        m_perAddress.erase(ofAddress);
}

void Server::Admit(Descriptor socket, PeerAddress peer) {
    Counters& counters = m_site.counters;
    ++counters.accepted;
    const int on = 1;
    ::setsockopt(socket.Get(), IPPROTO_TCP, TCP_NODELAY, &on, sizeof on);
    const std::lock_guard guard(m_mutex);
    const auto known = m_perAddress.find(peer.key);
    const Count before = known != m_perAddress.end() ? known->second : Count{};
    const auto full = LimitReached(before, m_site.proxies.Trusts(peer));
    if (full && (m_all.probes >= kProbePlaces || before.probes >= kProbesPerAddress))
        return Turn(socket, *full);
    const auto client = m_clients.insert(m_clients.end(), Client{std::move(peer), full, false, {}});
    for (Count* const count : {&m_all, &m_perAddress[client->peer.key]})
        ++(full ? count->probes : count->held);
    ++counters.open;
    try {
        // The thread comes to its end only through the mutex that is held here.
        client->thread = std::thread([this, client, taken = std::move(socket)]() mutable {
            const std::function<void()> leave = [this, client] {
                const std::lock_guard leaving(m_mutex);
                Leave(*client);
            };
            ServeConnection(std::move(taken), client->peer, client->full, leave, m_site);
            leave();
            const std::lock_guard ending(m_mutex);
            m_finished.splice(m_finished.end(), m_clients, client);
            m_ended.Signal();
        });
    } catch (const std::system_error&) {
        Leave(*client);
        m_clients.erase(client);
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
    Clients finished;
    {
        const std::lock_guard guard(m_mutex);
        finished.swap(m_finished);
    }
    for (Client& client : finished)
        client.thread.join();
}

} // namespace host
