// One connection of the web server, and each request on it as what answers it sees it.
#pragma once

#include <optional>
#include <string>
#include <string_view>

#include "host/base/counters.h"
#include "host/base/wait.h"
#include "host/http/answer.h"
#include "host/http/endpoint.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/wire.h"
#include "host/users/authenticator.h"
#include "host/users/shares.h"

namespace host {

struct Site;

// A request, and the ways to answer it. Belongs to the thread of the connection. The socket is a non-blocking
// one.
class Visit {
public:
    Visit(Descriptor& socket, Arrival& arrival, Request made, const Site& site)
        : request(std::move(made)), m_socket(socket), m_arrival(arrival), m_site(site) {}

    const Request request;
    std::string_view rest{}; // of its path, behind the pattern of its address
    std::string body{};      // as long as its address allows
    Form refusals = Form::Text;
    SignIn signIn{};       // nobody's, where everybody is let in
    Shares::Share place{}; // what its address takes up; null where that is nothing

    [[nodiscard]] bool IsHead() const { return request.method == "HEAD"; }

    // Reads the body. False when it did not come: the connection is at its end.
    bool ReadBody();

    // One of these answers the request.
    //
    // A refusal goes out as a page where that is what the client prefers. The connection goes on behind the
    // answer if both sides want that.
    void Send(const Answer& answer);
    // The connection ends behind the answer.
    void SendLast(const Answer& answer);
    // The connection ends behind the answer. Tells whether that has arrived; if not, nothing of it does
    // later.
    [[nodiscard]] bool SendUntilArrived(const Answer& answer);
    // The socket, from which nothing behind the head has been read; the connection is somebody else's then.
    [[nodiscard]] Descriptor Take();
    // Offers the socket to somebody who takes it, as with Take, or leaves it: then one of the calls above
    // still has to answer.
    [[nodiscard]] Descriptor& Offer() { return m_socket; }
    // The socket, to write to: the connection ends behind the call.
    [[nodiscard]] int Last();

    // Whether the next request may come.
    [[nodiscard]] bool GoesOn() const noexcept { return m_goesOn; }

private:
    [[nodiscard]] Answer Readable(const Answer& answer) const;
    bool SendBytes(std::string_view bytes);

    Descriptor& m_socket;
    Arrival& m_arrival;
    const Site& m_site;
    bool m_goesOn = false;
};

// Serves requests until the peer leaves, a limit or the stop ends it, or the socket is handed over; of a
// connection beyond a limit, `full`, one request that has a place kept. Never throws.
void ServeConnection(Descriptor socket, const PeerAddress& peer, std::optional<Refusal> full,
                     const Site& site) noexcept;

// Tells a peer that there are too many connections.
[[nodiscard]] Answer FullAnswer();

} // namespace host
