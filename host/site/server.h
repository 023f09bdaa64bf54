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
#include "host/site/site.h"

namespace host {

// A thread for each connection: it lives as long as the web server has the socket, so an upload that was
// handed over costs nothing here, or under TLS the thread, but no place. Every thread is joined by Stop.
class Server {
public:
    // Takes up what has come to the listener meanwhile, and goes on.
    Server(Listener listener, const Site& site);
    Server(const Server&) = delete;
    Server& operator=(const Server&) = delete;
    // The stop signal of the site must be raised before.
    ~Server();

    // Where it listens, with the port that the system chose when 0 was asked for.
    [[nodiscard]] const Endpoint& Where() const noexcept { return m_listener.endpoint; }

private:
    struct Client {
        PeerAddress peer;
        std::optional<Refusal> full; // the limit that it is beyond: it may ask for a probe and nothing else
        bool left = false;           // its place has been given back before its end
        std::thread thread;
    };
    using Clients = std::list<Client>;
    struct Count {
        std::size_t held = 0;
        std::size_t probes = 0;
    };

    void Accept();
    void Admit(Descriptor socket, PeerAddress peer);
    // With m_mutex held.
    [[nodiscard]] std::optional<Refusal> LimitReached(const Count& ofAddress, bool trusted) const;
    void Leave(Client& client);
    void Turn(const Descriptor& socket, Refusal reason) const;
    void Reap();

    const Site& m_site;
    Listener m_listener;
    Wakeup m_ended; // some client's thread is at its end
    std::mutex m_mutex;
    Clients m_clients;
    Clients m_finished; // threads to join
    std::map<std::string, Count> m_perAddress;
    Count m_all;
    std::thread m_acceptor; // last: it uses all of the above
};

} // namespace host
