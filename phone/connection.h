// A phone's connection to a server: TCP, with limits on every wait and an early end on request, and the HTTP
// head that opens it.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <optional>
#include <stdexcept>
#include <string>
#include <string_view>

#include "platform/scope.h"

namespace phone {

using Clock = std::chrono::steady_clock;

// How a conversation with a server ends.
enum class End {
    Done,    // all that was asked for
    Stopped, // on request
    Denied,  // the server does not want this phone
    Lost,    // no connection, or it broke, or fell silent, or the server has no place just now
    Failed,  // what came is none of the protocol, or the work here failed
};

// Ends a conversation from inside. What it says is one line for the person at the terminal.
class Ended : public std::runtime_error {
public:
    Ended(End how, const std::string& why) : std::runtime_error(why), end(how) {}
    const End end;
};
class ConnectionError : public Ended {
public:
    explicit ConnectionError(const std::string& why) : Ended(End::Lost, why) {}
};

// The end of a conversation of either kind.
struct Report {
    End end = End::Failed;
    std::string reason{};                     // one line for Denied, Lost and Failed
    std::optional<Clock::time_point> taken{}; // when the server took the phone, in the last conversation
    bool everTaken = false;                   // in a former one
    std::uint64_t losses = 0;                 // connections that were lost and followed by another one

    [[nodiscard]] bool IsGood() const noexcept { return end == End::Done || end == End::Stopped; }
};

struct ServerAddress {
    std::string host; // a name or a numeric address, without the brackets of an IPv6 literal
    std::string port; // 1 to 65535 in decimal

    // "host:port", with brackets around an IPv6 literal; also the value of the Host header.
    std::string Text() const;
};

// How a wait ended.
enum class WaitResult { Ready, Due, Stopped };

// One connection, used by one thread. `stop` is a descriptor that becomes readable when the phone is to end
// (it is never read, so any number of connections can share it); -1 for none. The caller owns it.
class Connection {
public:
    static constexpr std::chrono::seconds kConnectLimit{10};
    // A server that takes nothing for so long is given up.
    static constexpr std::chrono::seconds kSendLimit{60};
    // And for so long once `stop` is readable: the piece in hand is still finished, so that no frame is cut.
    static constexpr std::chrono::seconds kSendLimitStopped{2};

    // Resolves the name and tries its addresses in turn. Throws ConnectionError; an early stop is one as
    // well.
    static Connection Open(const ServerAddress& server, int stop);

    // Sends both pieces, whole and in one stream. Throws ConnectionError.
    void Send(std::string_view first, std::string_view second = {});

    // Waits until there are bytes to receive (or the peer has closed), `due` has come, or `stop` is readable.
    // Ready goes before Due.
    WaitResult WaitToReceive(Clock::time_point due);

    // Takes what is there, at most `size` bytes. Empty when the peer has closed. Throws ConnectionError. Only
    // after WaitToReceive said Ready.
    std::string Receive(std::size_t size);

    // The next bytes, at most `size`; empty when the peer has closed. Throws Ended: Lost with `silence`
    // when none have come by `due`, Stopped.
    std::string Await(std::size_t size, Clock::time_point due, const std::string& silence);

    // Says that nothing more will be sent; receiving goes on. From here on `stop` is not heeded any more:
    // what remains is to take leave, which the caller limits.
    void EndSending();

private:
    Connection(platform::Descriptor socket, int stop) : m_socket(std::move(socket)), m_stop(stop) {}

    platform::Descriptor m_socket;
    int m_stop;
};

// Where phones of every kind connect to; the name of the camera or source follows behind a "/".
inline constexpr std::string_view kVideoResource = "/mobile/video";

// The whole head with its blank line: `method`, the resource with the `name` percent-encoded, and the
// credentials as HTTP Basic. `parameters` follow behind a "?", as they are, unless they are empty. There is
// no Content-Length: what follows is no HTTP body, and the server takes the socket out of HTTP.
std::string OpeningHead(std::string_view method, const ServerAddress& server, std::string_view name,
                        std::string_view login, std::string_view password, std::string_view parameters = {});

// The line of a head that holds the credentials.
std::string Credentials(std::string_view login, std::string_view password);

// Explains the status line of a conversation that ended before it began, in one line for a terminal: Denied,
// but Lost from a server that is too busy.
Ended HttpRefusal(std::string statusLine);

// The server closed the connection without a word: Denied, `mayBe` that; but Lost for a phone that it has
// taken before, since a balancer ends connections like that while the server behind it is away.
Ended NoAnswer(const Report& report, const std::string& mayBe);

// --- To bring a phone back whose connection was lost ---

struct Reconnecting {
    bool enabled = false;
    // Told of each loss and of the wait behind it.
    std::function<void(const std::string& reason, Clock::duration wait)> lost{};
};

// Tells how long to wait before the next connection: not at all at first, then longer and longer as long as
// connections do not hold. Two phones of one camera, each of which throws the other out, would otherwise do
// so for ever.
class Comeback {
public:
    static constexpr std::chrono::seconds kHolds{10};
    static constexpr std::chrono::seconds kFirstWait{1};
    static constexpr std::chrono::seconds kLongestWait{60};

    // `lasted`: from the moment at which the server took the phone; 0 for a connection that did not come that
    // far.
    Clock::duration WaitAfter(Clock::duration lasted);

private:
    unsigned m_short = 0; // connections in a row that did not hold
};

// Runs conversations until one ends otherwise than by a loss, and notes how. One whose phone the server never
// took is the last: what is wrong may be the address. A conversation notes in `report.taken` that the server
// took it. `stop` as for Connection.
void Converse(Report& report, const Reconnecting& again, int stop, const std::function<End()>& conversation);

} // namespace phone
