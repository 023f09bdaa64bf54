#include "host/http/page_socket.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <list>
#include <system_error>
#include <utility>

#include <fcntl.h>
#include <poll.h>
#include <sys/socket.h>

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/compose.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "host/http/answer.h"
#include "host/http/beast_request.h"

namespace host {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using boost::system::error_code;

// Objects of the one kind of loop there is, which compile in half the time of those for any kind.
using Executor = asio::io_context::executor_type;
using Signal = asio::posix::basic_stream_descriptor<Executor>;
// One type of what is written, for text (an empty second buffer) and pictures alike.
using Message = std::array<asio::const_buffer, 2>;

// How long a page that takes nothing, or has gone, is waited for once it was told of the end.
constexpr std::chrono::milliseconds kCloseWithin{300};

// A descriptor of its own, for the event loop to own and close.
int DuplicateOf(int fd) {
    const int own = ::fcntl(fd, F_DUPFD_CLOEXEC, 0);
    if (own < 0)
        throw std::system_error(errno, std::generic_category(), "dup");
    return own;
}

// A connection as the WebSocket wants one: reads and writes with the stream, in clear and under TLS alike,
// and waits with the event loop.
class Line {
public:
    using executor_type = Executor;

    Line(asio::io_context& loop, Stream stream) : m_stream(std::move(stream)), m_ready(loop, m_stream.Fd()) {}
    Line(const Line&) = delete;
    Line& operator=(const Line&) = delete;
    ~Line() { m_ready.release(); } // the stream owns the descriptor

    executor_type get_executor() { return m_ready.get_executor(); }

    template <class Buffers, class Handler>
    auto async_read_some(const Buffers& buffers, Handler&& handler) {
        return Begin(
            [this, buffers] {
                for (auto at = asio::buffer_sequence_begin(buffers); at != asio::buffer_sequence_end(buffers);
                     ++at) {
                    const asio::mutable_buffer part = *at;
                    if (part.size() > 0)
                        return m_stream.Read(static_cast<char*>(part.data()), part.size());
                }
                return ssize_t{0};
            },
            std::forward<Handler>(handler));
    }

    template <class Buffers, class Handler>
    auto async_write_some(const Buffers& buffers, Handler&& handler) {
        return Begin([this, buffers] { return m_stream.Write(Gather(buffers)); },
                     std::forward<Handler>(handler));
    }

    void Shut() {
        ::shutdown(m_stream.Fd(), SHUT_RDWR);
        error_code ignored;
        m_ready.cancel(ignored);
    }
    void EndSending() { m_stream.EndSending(); }

private:
    // One step of the stream as soon as it can be taken: `step` is called again after each wait. What is done
    // at once is told from the event loop all the same, as every operation.
    template <class Step, class Handler>
    auto Begin(Step step, Handler&& handler) {
        return asio::async_compose<Handler, void(error_code, std::size_t)>(
            [this, step = std::move(step), result = Stream::kAgain,
             waited = false](auto& self, error_code error = {}) mutable {
                if (error)
                    return self.complete(error, 0);
                if (result == Stream::kAgain) {
                    result = step();
                    if (result == Stream::kAgain) {
                        waited = true;
                        const auto kind =
                            m_stream.Awaits() == POLLOUT ? Signal::wait_write : Signal::wait_read;
                        return m_ready.async_wait(kind, std::move(self));
                    }
                    if (!waited)
                        return asio::post(get_executor(), std::move(self));
                }
                if (result > 0)
                    return self.complete({}, static_cast<std::size_t>(result));
                self.complete(result == 0 ? error_code(asio::error::eof) : asio::error::connection_reset, 0);
            },
            handler, m_ready);
    }

    // The head of a message and what follows go out together: as one packet, and one record of TLS.
    template <class Buffers>
    std::string_view Gather(const Buffers& buffers) {
        auto at = asio::buffer_sequence_begin(buffers);
        const auto end = asio::buffer_sequence_end(buffers);
        std::size_t size = 0;
        for (; at != end && size < m_together.size(); ++at) {
            const asio::const_buffer part = *at;
            if (size == 0 && part.size() >= m_together.size())
                return {static_cast<const char*>(part.data()), part.size()};
            const std::size_t count = std::min(part.size(), m_together.size() - size);
            std::memcpy(m_together.data() + size, part.data(), count);
            size += count;
        }
        return {m_together.data(), size};
    }

    Stream m_stream;
    Signal m_ready;
    std::array<char, 16384> m_together{};
};

// How the library ends a connection of a kind that it does not know.
void beast_close_socket(Line& line) {
    line.Shut();
}
template <class Handler>
void async_teardown(beast::role_type /*role*/, Line& line, Handler&& handler) {
    line.EndSending();
    asio::post(line.get_executor(),
               [handler = std::forward<Handler>(handler)]() mutable { handler(error_code{}); });
}

// Pictures do not get smaller by deflate.
using WebSocket = websocket::stream<Line, false>;

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

class PageSocket::Side {
public:
    Side(asio::io_context& loop, int fd) : descriptor(loop, DuplicateOf(fd)) {}
    Signal descriptor;
};

void PageSocket::SideEnd::operator()(Side* side) const {
    delete side;
}

class PageSocket::Loop {
public:
    Loop(PageSocket& page, Stream stream, const Request& request, const Wakeup& stop)
        : m_page(page), m_stop(m_context, DuplicateOf(stop.Fd())), m_stream(m_context, std::move(stream)),
          m_request(request.fields), m_end(m_context) {}

    void Run();
    void Close(Code code);
    void Write(bool text, const Message& message);
    void Watch(Wakeup& wakeup, std::function<void()> happened) {
        Await(m_watched.emplace_back(m_context, wakeup, std::move(happened)));
    }
    void At(Timer& timer, Clock::time_point when, std::function<void()> happened);
    void Once(Side& side, short event, std::function<void()> happened);
    asio::io_context& Context() { return m_context; }

private:
    struct Watched {
        Watched(asio::io_context& loop, Wakeup& signal, std::function<void()> then)
            : descriptor(loop, DuplicateOf(signal.Fd())), wakeup(signal), happened(std::move(then)) {}
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
    WebSocket m_stream;
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
    m_stream.read_message_max(m_page.m_manner.longest);
    m_stream.auto_fragment(false);
    m_stop.async_wait(Signal::wait_read, [this](error_code error) {
        if (!error)
            Close(m_page.m_manner.atStop);
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

void PageSocket::Loop::Once(Side& side, short event, std::function<void()> happened) {
    side.descriptor.async_wait(event == POLLOUT ? Signal::wait_write : Signal::wait_read,
                               [this, happened = std::move(happened)](error_code error) {
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
        if (!m_closing && !(m_stream.got_text() ? m_page.OnMessage(message) : m_page.OnBinary(message)))
            Close(kPolicy); // no page of ours talks like that
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
        m_stream.async_close(static_cast<websocket::close_code>(code),
                             [this](error_code) { m_context.stop(); });
}

PageSocket::PageSocket(Stream stream, const Request& request, const Limits& limits, const Wakeup& stop,
                       const Manner& manner)
    : m_limits(limits), m_manner(manner),
      m_loop(std::make_unique<Loop>(*this, std::move(stream), request, stop)) {}

PageSocket::~PageSocket() = default;

void PageSocket::Run() {
    m_loop->Run();
}

void PageSocket::Close(Code code) {
    m_loop->Close(code);
}

PageSocket::SidePtr PageSocket::MakeSide(int fd) {
    return SidePtr(new Side(m_loop->Context(), fd));
}

void PageSocket::Once(const SidePtr& side, short event, std::function<void()> happened) {
    m_loop->Once(*side, event, std::move(happened));
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
