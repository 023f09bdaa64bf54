#include "host/http/page_socket.h"

#include <array>
#include <cerrno>
#include <system_error>
#include <utility>

#include <fcntl.h>

#include "host/http/beast_request.h"

namespace host {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;

// A descriptor of its own for a wake-up, for the event loop to own and close.
int DuplicateOf(const Wakeup& wakeup) {
    const int fd = ::fcntl(wakeup.Fd(), F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "dup");
    return fd;
}

} // namespace

PageSocket::PageSocket(Descriptor socket, const Request& request, const Limits& limits, const Wakeup& stop)
    : m_limits(limits), m_stop(m_loop, DuplicateOf(stop)),
      m_stream(tcp::socket(m_loop, tcp::v4(), socket.Release())), m_request(request.fields) {}

void PageSocket::Run() {
    websocket::stream_base::timeout timeout{};
    timeout.handshake_timeout = m_limits.headDeadline;
    timeout.idle_timeout = m_limits.writeStall; // a silent page is pinged before that
    timeout.keep_alive_pings = true;
    m_stream.set_option(timeout);
    m_stream.set_option(websocket::stream_base::decorator(
        [](websocket::response_type& answer) { answer.set(beast::http::field::server, "Morrowstream"); }));
    m_stream.read_message_max(kMaxPageMessageBytes);
    m_stream.auto_fragment(false);
    m_stop.async_wait(asio::posix::stream_descriptor::wait_read, [this](error_code error) {
        if (!error)
            Close();
    });
    m_stream.async_accept(m_request->message, [this](error_code error) {
        if (error)
            return Close();
        OnOpen();
        Read();
        Pump();
    });
    m_loop.run();
}

void PageSocket::Watch(Wakeup& wakeup, std::function<void()> happened) {
    Await(m_watched.emplace_back(
        Watched{asio::posix::stream_descriptor(m_loop, DuplicateOf(wakeup)), wakeup, std::move(happened)}));
}

void PageSocket::Await(Watched& watched) {
    watched.descriptor.async_wait(asio::posix::stream_descriptor::wait_read,
                                  [this, &watched](error_code error) {
                                      if (error)
                                          return;
                                      watched.wakeup.Clear();
                                      watched.happened();
                                      Await(watched);
                                      Pump();
                                  });
}

void PageSocket::At(Timer& timer, Clock::time_point when, std::function<void()> happened) {
    timer.expires_at(when);
    timer.async_wait([this, happened = std::move(happened)](error_code error) {
        if (error)
            return;
        happened();
        Pump();
    });
}

void PageSocket::Read() {
    m_stream.async_read(m_received, [this](error_code error, std::size_t) {
        if (error)
            return Close();
        const auto data = m_received.cdata();
        const std::string_view message(static_cast<const char*>(data.data()), data.size());
        if (!m_stream.got_text() || !OnMessage(message))
            return Close(); // no page of ours talks like that
        m_received.consume(m_received.size());
        Read();
        Pump();
    });
}

void PageSocket::Pump() {
    if (!m_writing && !m_loop.stopped())
        SendNext();
}

void PageSocket::Text(asio::const_buffer text) {
    m_writing = true;
    m_stream.text(true);
    m_stream.async_write(text, [this](error_code error, std::size_t) { OnWritten(error); });
}

void PageSocket::Binary(asio::const_buffer first, asio::const_buffer second) {
    m_writing = true;
    m_stream.binary(true);
    m_stream.async_write(std::array{first, second},
                         [this](error_code error, std::size_t) { OnWritten(error); });
}

void PageSocket::OnWritten(const error_code& error) {
    if (error)
        return Close();
    m_writing = false;
    Pump();
}

} // namespace host
