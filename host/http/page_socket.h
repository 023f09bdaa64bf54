// A WebSocket to a page of this host.
#pragma once

#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <string_view>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "host/base/wait.h"
#include "host/http/limits.h"
#include "host/http/request.h"

namespace host {

// One page's connection. It has an event loop of its own, which runs on the thread of the connection; so
// nothing here needs a lock, and a slow page holds up no other. One message is written at a time.
class PageSocket {
public:
    PageSocket(const PageSocket&) = delete;
    PageSocket& operator=(const PageSocket&) = delete;

    // Returns when the page has left, was closed, or the server stops.
    void Run();

protected:
    // Takes the socket. The request asks for a WebSocket. The stop signal outlives the object.
    PageSocket(Descriptor socket, const Request& request, const Limits& limits, const Wakeup& stop);
    ~PageSocket() = default;

    // The page is there. Called once, first.
    virtual void OnOpen() = 0;
    // A text message of the page. False for one that no page of this host sends: the connection ends.
    virtual bool OnMessage(std::string_view message) = 0;
    // Sends the next message if one is due. Called only while none is being written, behind all that can
    // change what is due.
    virtual void SendNext() = 0;

    // Begins to write a message; what it is made of stays as it is until SendNext is called again. At most
    // once for each SendNext.
    void Text(boost::asio::const_buffer text);
    void Binary(boost::asio::const_buffer first, boost::asio::const_buffer second);

    // Calls `happened`, and then SendNext, for each signal from now on.
    void Watch(Wakeup& wakeup, std::function<void()> happened);
    // Calls `happened`, and then SendNext, at that time; a later call replaces an earlier one of that timer.
    using Timer = boost::asio::steady_timer;
    [[nodiscard]] Timer MakeTimer() { return Timer(m_loop); }
    void At(Timer& timer, Clock::time_point when, std::function<void()> happened);
    // Sends nothing more and ends.
    void Close() { m_loop.stop(); }

    const Limits m_limits;

private:
    struct Watched {
        boost::asio::posix::stream_descriptor descriptor;
        Wakeup& wakeup;
        std::function<void()> happened;
    };
    void Await(Watched& watched);
    void Read();
    void Pump();
    void OnWritten(const boost::system::error_code& error);

    boost::asio::io_context m_loop{1};
    std::list<Watched> m_watched;
    boost::asio::posix::stream_descriptor m_stop;
    boost::beast::websocket::stream<boost::asio::ip::tcp::socket> m_stream;
    const std::shared_ptr<const BeastRequest> m_request;
    boost::beast::flat_buffer m_received;
    bool m_writing = false;
};

} // namespace host
