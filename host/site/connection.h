// One connection of the web server, and each request on it as what answers it sees it.
#pragma once

#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/counters.h"
#include "host/base/wait.h"
#include "host/http/answer.h"
#include "host/http/endpoint.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/stream.h"
#include "host/http/wire.h"
#include "host/users/authenticator.h"
#include "host/users/sessions.h"
#include "host/users/shares.h"
#include "host/users/watches.h"

namespace host {

struct Site;

// A connection that the web server has; it waits at its end for all of them to be let go of. Any thread.
class Seat {
public:
    Seat() = default;
    Seat(const Seat&) = delete;
    Seat& operator=(const Seat&) = delete;
    virtual ~Seat() = default;
    // From now on it does not count among those that there may be. The end says so as well.
    virtual void Leave() noexcept = 0;
    // What came of counting it for another address.
    struct Counted {
        std::optional<Refusal> beyond; // this limit: it may ask for what has a place kept, and nothing else
        bool admitted = true;          // false: there are too many of those as well
    };
    // The proxy that made it speaks for `client`: it counts among the connections of that address. Once,
    // before anybody else has it.
    virtual Counted CountFor(const PeerAddress& client) = 0;
};
using SeatPtr = std::shared_ptr<Seat>;

// A request, and the ways to answer it. Belongs to the thread of the connection.
class Visit {
public:
    Visit(Stream& stream, const Arrival& arrival, const SeatPtr& seat, Request made, const Site& site)
        : request(std::move(made)), m_stream(stream), m_arrival(arrival), m_seat(seat), m_site(site) {}

    const Request request;
    std::string_view rest{}; // of its path, behind the pattern of its address
    std::string body{};      // as long as its address allows
    Form refusals = Form::Text;
    SignIn signIn{};       // nobody's, where everybody is let in
    Rights rights{};       // which cameras the sender sees; where everybody is let in, none
    Shares::Share place{}; // what its address takes up; null where that is nothing

    [[nodiscard]] bool IsHead() const { return request.method == "HEAD"; }

    // Reads the body. False when it did not come: the connection is at its end.
    bool ReadBody();

    // One of these answers the request.
    //
    // A refusal goes out as a page where that is what the client prefers. The connection goes on behind the
    // answer if both sides want that.
    void Send(const Answer& answer);
    // The same for a request whose body has been read.
    void SendGoingOn(const Answer& answer);
    // The connection ends behind the answer.
    void SendLast(const Answer& answer);
    // The connection ends behind the answer. Tells whether that has arrived; if not, nothing of it does
    // later.
    [[nodiscard]] bool SendUntilArrived(const Answer& answer);
    // The connection, from which nothing behind the head has been read; it is somebody else's then.
    [[nodiscard]] Stream Take() { return std::move(m_stream); }
    // Offers it to somebody who takes its socket, or leaves it: then one of the calls above still has to
    // answer.
    [[nodiscard]] Stream& Offer() { return m_stream; }

    // The line of who has signed in with a browser, for a page; HTML, empty for others.
    [[nodiscard]] std::string AccountLine() const;
    // For a connection that goes on without this: what it takes up, to be let go of at its end. It ends with
    // the session, or the program's token, that it came with, and as soon as it may not go on with the rights
    // that its visitor has by then. Before the connection is taken.
    [[nodiscard]] std::shared_ptr<const void> TakeHeld(Watches::MayGoOn mayGoOn = {});
    // The latter alone, with its place.
    [[nodiscard]] std::shared_ptr<const void> TakePlace(Watches::MayGoOn mayGoOn);
    [[nodiscard]] const SeatPtr& ShareSeat() const noexcept { return m_seat; }

    // Whether the next request may come.
    [[nodiscard]] bool GoesOn() const noexcept { return m_goesOn; }

private:
    // As the client reads it: a refusal as a page, a page without script with the visitor's line.
    [[nodiscard]] Answer Readable(const Answer& answer) const;
    bool SendBytes(std::string_view bytes);
    // Null for who has not signed in: nothing ends their rights.
    [[nodiscard]] Watches::Held Watch(Watches::MayGoOn mayGoOn, std::function<void()> end) const;

    Stream& m_stream;
    const Arrival& m_arrival;
    const SeatPtr m_seat;
    const Site& m_site;
    bool m_goesOn = false;
};

// Serves requests until the peer leaves, a limit or the stop ends it, or the socket is handed over; of a
// connection beyond a limit, `full`, one request that has a place kept. Never throws. What begins with a byte
// of TLS is served under that, where the site has a certificate.
void ServeConnection(Descriptor socket, const PeerAddress& peer, std::optional<Refusal> full, SeatPtr seat,
                     const Site& site) noexcept;

// Tells a peer that there are too many connections.
[[nodiscard]] Answer FullAnswer();

} // namespace host
