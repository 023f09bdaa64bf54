// A phone's connection to a server: TCP, with limits on every wait and an early end on request.
#pragma once

#include <chrono>
#include <span>
#include <stdexcept>
#include <string>
#include <string_view>

namespace phone {

using Clock = std::chrono::steady_clock;

// What went wrong with a connection, as one line for the person at the terminal.
class ConnectionError : public std::runtime_error {
public:
    using std::runtime_error::runtime_error;
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
    // The same once `stop` is readable: the piece in hand is still finished, so that no frame is cut.
    static constexpr std::chrono::seconds kSendLimitStopped{2};

    // Resolves the name and tries its addresses in turn. Throws ConnectionError; an early stop is one as
    // well.
    static Connection Open(const ServerAddress& server, int stop);

    Connection(Connection&& other) noexcept;
    Connection& operator=(Connection&&) = delete;
    ~Connection();

    // Sends both pieces, whole and in one stream. Throws ConnectionError.
    void Send(std::string_view first, std::string_view second = {});

    // Waits until there are bytes to receive (or the peer has closed), `due` has come, or `stop` is readable.
    // What is ready goes before what is due.
    WaitResult WaitToReceive(Clock::time_point due);

    // Takes what is there, at most `size` bytes. Empty when the peer has closed. Throws ConnectionError. Only
    // after WaitToReceive said Ready.
    std::string Receive(std::size_t size);

    // Says that nothing more will be sent; receiving goes on. From here on `stop` is not heeded any more:
    // what remains is to take leave, which the caller limits.
    void EndSending();

private:
    Connection(int descriptor, int stop) : m_descriptor(descriptor), m_stop(stop) {}

    int m_descriptor;
    int m_stop;
};

} // namespace phone
