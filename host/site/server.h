// The web server: accepts connections and keeps the threads that serve them.
#pragma once

#include <list>
#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <thread>

#include "host/base/wait.h"
#include "host/http/endpoint.h"
#include "host/site/connection.h"
#include "host/site/site.h"

namespace host {

// A thread for each connection, for as long as it asks and is answered. An upload that was handed over costs
// nothing here, or under TLS the thread, but no place; watchers and pages go on without a thread.
class Server {
public:
    // Takes up what has come to the listener meanwhile, and goes on.
    Server(Listener listener, const Site& site);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    // The stop signal of the site must be raised before. No connection is left then.
    ~Server();

    // Where it listens, with the port that the system chose when 0 was asked for.
    [[nodiscard]] const Endpoint& Where() const noexcept { return m_listener.endpoint; }

private:
    class Taken;
    using Threads = std::list<std::thread>;
    struct Count {
        std::size_t held = 0;
        std::size_t probes = 0;
    };

    void Accept();
    void Admit(Descriptor socket, PeerAddress peer);
    void Serve(Descriptor socket, const PeerAddress& peer, std::optional<Refusal> full, SeatPtr seat);
    // With m_mutex held.
    [[nodiscard]] std::optional<Refusal> LimitReached(const Count& ofAddress, bool trusted) const;
    [[nodiscard]] bool HasProbePlace(const Count& ofAddress) const;
    void Turn(const Descriptor& socket, Refusal reason) const;
    void Reap();

    const Site& m_site;
    Listener m_listener;
    Wakeup m_ended; // some thread or connection is at its end
    std::mutex m_mutex;
    Threads m_threads;
    Threads m_finished;      // to be joined
    std::size_t m_taken = 0; // connections
    std::map<std::string, Count> m_perAddress;
    Count m_all;
    std::thread m_acceptor; // last: it uses all of the above
};

} // namespace host
