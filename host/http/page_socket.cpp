#include "host/http/page_socket.h"

#include <array>
#include <cerrno>
#include <list>
#include <system_error>
#include <utility>

#include <fcntl.h>

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "host/http/answer.h"
#include "host/http/beast_request.h"

namespace host {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;

// Objects of the one kind of loop there is, which compile in half the time of those for any kind.
using Executor = asio::io_context::executor_type;
using Socket = asio::basic_stream_socket<tcp, Executor>;
using Signal = asio::posix::basic_stream_descriptor<Executor>;
// Pictures do not get smaller by deflate.
using Stream = websocket::stream<Socket, false>;
// One type of what is written, for text (an empty second buffer) and pictures alike.
using Message = std::array<asio::const_buffer, 2>;
using Code = websocket::close_code;

// How long a page that takes nothing, or has gone, is waited for once it was told of the end.
constexpr std::chrono::milliseconds kCloseWithin{300};

// A descriptor of its own for a wake-up, for the event loop to own and close.
int DuplicateOf(const Wakeup& wakeup) {
    const int fd = ::fcntl(wakeup.Fd(), F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "dup");
    return fd;
}

asio::const_buffer BufferOf(std::string_view bytes) {
    return {bytes.data(), bytes.size()};
}

} // namespace

class PageSocket::Timer {
public:
    explicit Timer(asio::io_context& loop) : wait(loop) {}
    asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, Executor> wait;
};

void PageSocket::TimerEnd::operator()(Timer* timer) const {
    delete timer;
}

class PageSocket::Loop {
public:
    Loop(PageSocket& page, Descriptor socket, const Request& request, const Wakeup& stop)
        : m_page(page), m_stop(m_context, DuplicateOf(stop)),
          m_stream(Socket(m_context, tcp::v4(), socket.Release())), m_request(request.fields),
          m_end(m_context) {}

    void Run();
    void Close(Code code = Code::normal);
    void Write(bool text, const Message& message);
    void Watch(Wakeup& wakeup, std::function<void()> happened) {
        Await(m_watched.emplace_back(m_context, wakeup, std::move(happened)));
    }
    void At(Timer& timer, Clock::time_point when, std::function<void()> happened);
    asio::io_context& Context() { return m_context; }

private:
    struct Watched {
        Watched(asio::io_context& loop, Wakeup& signal, std::function<void()> then)
            : descriptor(loop, DuplicateOf(signal)), wakeup(signal), happened(std::move(then)) {}
        Signal descriptor;
        Wakeup& wakeup;
        std::function<void()> happened;
    };
    void Await(Watched& watched);
    void Read();
    void Pump() {
        if (!m_writing && !m_closing)
            m_page.SendNext();
    }

    PageSocket& m_page;
    asio::io_context m_context{1};
    std::list<Watched> m_watched;
    Signal m_stop;
    Stream m_stream;
    const std::shared_ptr<const BeastRequest> m_request;
    beast::flat_buffer m_received;
    Timer m_end;
    bool m_writing = false;
    bool m_closing = false;
};

void PageSocket::Loop::Run() {
    const Limits& limits = m_page.m_limits;
    websocket::stream_base::timeout timeout{};
    timeout.handshake_timeout = limits.headDeadline;
    timeout.idle_timeout = limits.writeStall; // a silent page is pinged before that
    timeout.keep_alive_pings = true;
    m_stream.set_option(timeout);
    m_stream.set_option(websocket::stream_base::decorator([](websocket::response_type& answer) {
        answer.set(beast::http::field::server, "Morrowstream");
        answer.set(beast::http::field::date, HttpDate());
    }));
    m_stream.read_message_max(kMaxPageMessageBytes);
    m_stream.auto_fragment(false);
    m_stop.async_wait(Signal::wait_read, [this](error_code error) {
        if (!error)
            Close(Code::going_away);
    });
    m_stream.async_accept(m_request->message, [this](error_code error) {
        if (error)
            return m_context.stop();
        m_page.OnOpen();
        Read();
        Pump();
    });
    m_context.run();
}

void PageSocket::Loop::Await(Watched& watched) {
    watched.descriptor.async_wait(Signal::wait_read, [this, &watched](error_code error) {
        if (error)
            return;
        watched.wakeup.Clear();
        watched.happened();
        Await(watched);
        Pump();
    });
}

void PageSocket::Loop::At(Timer& timer, Clock::time_point when, std::function<void()> happened) {
    timer.wait.expires_at(when);
    timer.wait.async_wait([this, happened = std::move(happened)](error_code error) {
        if (error)
            return;
        happened();
        Pump();
    });
}

void PageSocket::Loop::Read() {
    m_stream.async_read(m_received, [this](error_code error, std::size_t) {
        if (error)
            return m_context.stop();
        const auto data = m_received.cdata();
        const std::string_view message(static_cast<const char*>(data.data()), data.size());
        if (!m_closing && (!m_stream.got_text() || !m_page.OnMessage(message)))
            Close(Code::policy_error); // no page of ours talks like that
        m_received.consume(m_received.size());
        Read(); // also for the answer to a close
        Pump();
    });
}

void PageSocket::Loop::Write(bool text, const Message& message) {
    m_writing = true;
    m_stream.text(text);
    m_stream.async_write(message, [this](error_code error, std::size_t) {
        m_writing = false;
        if (error)
            return m_closing ? void() : m_context.stop();
        Pump();
    });
}

void PageSocket::Loop::Close(Code code) {
    if (std::exchange(m_closing, true))
        return;
    m_end.wait.expires_after(kCloseWithin);
    m_end.wait.async_wait([this](error_code) { m_context.stop(); });
    if (m_stream.is_open())
        m_stream.async_close(code, [this](error_code) { m_context.stop(); });
}

PageSocket::PageSocket(Descriptor socket, const Request& request, const Limits& limits, const Wakeup& stop)
    : m_limits(limits), m_loop(std::make_unique<Loop>(*this, std::move(socket), request, stop)) {}

PageSocket::~PageSocket() = default;

void PageSocket::Run() {
    m_loop->Run();
}

void PageSocket::Close() {
    m_loop->Close();
}

void PageSocket::Text(std::string_view text) {
    m_loop->Write(true, {BufferOf(text)});
}

void PageSocket::Binary(std::string_view first, std::string_view second) {
    m_loop->Write(false, {BufferOf(first), BufferOf(second)});
}

void PageSocket::Watch(Wakeup& wakeup, std::function<void()> happened) {
    m_loop->Watch(wakeup, std::move(happened));
}

PageSocket::TimerPtr PageSocket::MakeTimer() {
    return TimerPtr(new Timer(m_loop->Context()));
}

void PageSocket::At(const TimerPtr& timer, Clock::time_point when, std::function<void()> happened) {
    m_loop->At(*timer, when, std::move(happened));
}

} // namespace host
