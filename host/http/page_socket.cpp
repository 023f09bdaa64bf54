#include "host/http/page_socket.h"

#include <array>
#include <cerrno>
#include <list>
#include <optional>
#include <span>
#include <system_error>
#include <utility>
#include <vector>

#include <fcntl.h>
#include <poll.h>
#include <sys/epoll.h>
#include <sys/socket.h>

#include <boost/asio/compose.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#include <boost/asio/post.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "host/http/answer.h"
#include "host/http/beast_request.h"
#include "host/log/console.h"

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
// and waits with the event loop. The layers of the library's own for TLS would hold two buffers of 17 KB for
// each quiet connection, and copy what is written once more.
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
        return Begin(
            [this, buffers] {
                const auto parts = PartsOf(buffers);
                return m_stream.Write(parts);
            },
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

    // The head of a message and what follows go out together.
    template <class Buffers>
    static auto PartsOf(const Buffers& buffers) {
        std::array<std::string_view, Stream::kMostParts> parts{};
        auto at = asio::buffer_sequence_begin(buffers);
        for (std::size_t i = 0; i < parts.size() && at != asio::buffer_sequence_end(buffers); ++i, ++at) {
            const asio::const_buffer part = *at;
            parts[i] = {static_cast<const char*>(part.data()), part.size()};
        }
        return parts;
    }

    Stream m_stream;
    Signal m_ready;
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

class PageSocket::Side {
public:
    Side(asio::io_context& loop, int fd) : descriptor(loop, DuplicateOf(fd)) {}
    Signal descriptor;
};

void PageSocket::SideEnd::operator()(Side* side) const {
    delete side;
}

// All that is under way has a share of it, so that it outlives whatever the library still tells.
class PageSocket::Link : public std::enable_shared_from_this<Link> {
public:
    Link(EventLoop& loop, Stream stream, const Request& request)
        : m_loop(loop), m_load(loop), m_peer(request.peer.text), m_stream(loop.Context(), std::move(stream)),
          m_request(request.fields) {}

    void Start(std::unique_ptr<PageSocket> page, std::shared_ptr<const void> held);
    void Close(Code code);
    void Write(bool text, const Message& message);
    void Watch(Wakeup& wakeup, std::function<void()> happened);
    void At(EventLoop::Timer& timer, Clock::time_point when, std::function<void()> happened);
    void Once(Side& side, short event, std::function<void()> happened);
    void Elsewhere(std::function<void()> work, std::function<void()> then);
    EventLoop& Loop() { return m_loop; }

private:
    struct Watched {
        std::optional<EventLoop::Interest> interest;
        std::function<void()> happened;
        bool due = false;
    };

    void Open();
    void Read();
    // Calls what the page does about an event, or keeps it until the page is back from elsewhere.
    void Happen(std::function<void()> event);
    void Call(const std::function<void()>& event);
    void ComeBack(const std::string& failure, const std::function<void()>& then);
    void Log(std::string_view what) const;
    void End();
    void LetGo();

    std::shared_ptr<const void> m_held;
    EventLoop& m_loop;
    const EventLoop::Load m_load;
    const std::string m_peer;
    WebSocket m_stream;
    const std::shared_ptr<const BeastRequest> m_request;
    std::unique_ptr<PageSocket> m_page; // until the end
    std::optional<EventLoop::AtStop> m_stop;
    std::list<Watched> m_watched;
    std::optional<EventLoop::Timer> m_end;
    beast::flat_buffer m_received;
    std::vector<std::function<void()>> m_waiting; // for the page to come back
    bool m_away = false;
    bool m_writing = true; // at first the answer to the request
    bool m_closing = false;
    bool m_ended = false;
};

void PageSocket::Link::Start(std::unique_ptr<PageSocket> page, std::shared_ptr<const void> held) {
    m_page = std::move(page);
    m_held = std::move(held);
    m_loop.Post([self = shared_from_this()] { self->Call([&] { self->Open(); }); });
}

void PageSocket::Link::Open() {
    const Limits& limits = m_page->m_limits;
    websocket::stream_base::timeout timeout{};
    timeout.handshake_timeout = limits.headDeadline;
    timeout.idle_timeout = limits.writeStall; // a silent page is pinged before that
    timeout.keep_alive_pings = true;
    m_stream.set_option(timeout);
    m_stream.set_option(websocket::stream_base::decorator([](websocket::response_type& answer) {
        answer.set(beast::http::field::server, "Morrowstream");
        answer.set(beast::http::field::date, HttpDate());
    }));
    m_stream.read_message_max(m_page->m_manner.longest);
    m_stream.auto_fragment(false);
    if (m_loop.IsStopping())
        return End();
    m_stop.emplace(m_loop, [this] { Call([this] { Close(m_page->m_manner.atStop); }); });
    m_stream.async_accept(m_request->message, [self = shared_from_this()](error_code error) {
        if (error)
            return self->End();
        self->m_writing = false;
        self->Call([&] {
            self->m_page->OnOpen();
            self->Read();
        });
    });
}

void PageSocket::Link::Happen(std::function<void()> event) {
    if (m_away)
        m_waiting.push_back(std::move(event));
    else
        Call(event);
}

void PageSocket::Link::Call(const std::function<void()>& event) {
    if (m_ended)
        return;
    try {
        event();
        if (!m_writing && !m_closing && !m_away && !m_ended)
            m_page->SendNext();
    } catch (const std::exception& error) {
        Log(error.what());
        End();
    }
}

void PageSocket::Link::Log(std::string_view what) const {
    Console::Get().Log("error", "connection of " + m_peer + " ended: " + std::string(what));
}

void PageSocket::Link::Watch(Wakeup& wakeup, std::function<void()> happened) {
    Watched& watched = m_watched.emplace_back();
    watched.happened = std::move(happened);
    watched.interest.emplace(m_loop, wakeup.Fd(), EPOLLIN, [this, &wakeup, &watched](std::uint32_t) {
        wakeup.Clear();
        if (std::exchange(watched.due, true))
            return;
        Happen([&watched] {
            watched.due = false;
            watched.happened();
        });
    });
}

void PageSocket::Link::At(EventLoop::Timer& timer, Clock::time_point when, std::function<void()> happened) {
    timer.At(when, [self = shared_from_this(), happened = std::move(happened)] { self->Happen(happened); });
}

void PageSocket::Link::Once(Side& side, short event, std::function<void()> happened) {
    side.descriptor.async_wait(event == POLLOUT ? Signal::wait_write : Signal::wait_read,
                               [self = shared_from_this(), happened = std::move(happened)](error_code error) {
                                   if (!error)
                                       self->Happen(happened);
                               });
}

void PageSocket::Link::Elsewhere(std::function<void()> work, std::function<void()> then) {
    m_away = true;
    EventLoop::Elsewhere(
        [self = shared_from_this(), work = std::move(work), then = std::move(then)]() mutable {
            std::string failure;
            try {
                work();
            } catch (const std::exception& error) {
                failure = error.what();
            }
            EventLoop& loop = self->m_loop;
            loop.Post(
                [self = std::move(self), failure, then = std::move(then)] { self->ComeBack(failure, then); });
        });
}

void PageSocket::Link::ComeBack(const std::string& failure, const std::function<void()>& then) {
    m_away = false;
    if (m_ended)
        return LetGo();
    if (!failure.empty()) {
        Log(failure);
        return End();
    }
    Call(then);
    // One of these may go elsewhere again; the others wait on.
    auto waiting = std::exchange(m_waiting, {});
    for (auto& event : waiting)
        Happen(std::move(event));
}

void PageSocket::Link::Read() {
    m_stream.async_read(m_received, [self = shared_from_this()](error_code error, std::size_t) {
        if (error)
            return self->End();
        self->Happen([link = self.get()] {
            const auto data = link->m_received.cdata();
            const std::string_view message(static_cast<const char*>(data.data()), data.size());
            PageSocket& page = *link->m_page;
            if (!link->m_closing &&
                !(link->m_stream.got_text() ? page.OnMessage(message) : page.OnBinary(message)))
                link->Close(kPolicy); // no page of ours talks like that
            link->m_received.consume(link->m_received.size());
            link->Read(); // also for the answer to a close
        });
    });
}

void PageSocket::Link::Write(bool text, const Message& message) {
    m_writing = true;
    m_stream.text(text);
    m_stream.async_write(message, [self = shared_from_this()](error_code error, std::size_t) {
        self->m_writing = false;
        if (!error)
            self->Call([] {});
        else if (!self->m_closing)
            self->End();
    });
}

void PageSocket::Link::Close(Code code) {
    if (std::exchange(m_closing, true))
        return;
    m_end.emplace(m_loop).At(Clock::now() + kCloseWithin, [self = shared_from_this()] { self->End(); });
    if (m_stream.is_open())
        m_stream.async_close(static_cast<websocket::close_code>(code),
                             [self = shared_from_this()](error_code) { self->End(); });
}

void PageSocket::Link::End() {
    if (std::exchange(m_ended, true))
        return;
    m_stream.next_layer().Shut();
    // Not from within a call of the page.
    m_loop.Post([self = shared_from_this()] {
        if (!self->m_away)
            self->LetGo();
    });
}

// What the page and its visitor give back may be locked by somebody who writes to a disk. What is held goes
// last: with it the server forgets the connection, and the loop may end.
void PageSocket::Link::LetGo() {
    m_end.reset();
    m_stop.reset();
    m_watched.clear();
    m_waiting.clear();
    std::shared_ptr<PageSocket> page = std::move(m_page);
    EventLoop::Elsewhere([page = std::move(page), held = std::move(m_held)]() mutable {
        page.reset();
        held.reset();
    });
}

PageSocket::PageSocket(EventLoop& loop, Stream stream, const Request& request, const Limits& limits,
                       const Manner& manner)
    : m_limits(limits), m_manner(manner), m_link(std::make_shared<Link>(loop, std::move(stream), request)) {}

PageSocket::~PageSocket() = default;

void PageSocket::Start(std::unique_ptr<PageSocket> page, std::shared_ptr<const void> held) {
    const auto link = page->m_link;
    link->Start(std::move(page), std::move(held));
}

void PageSocket::Close(Code code) {
    m_link->Close(code);
}

PageSocket::SidePtr PageSocket::MakeSide(int fd) {
    return SidePtr(new Side(m_link->Loop().Context(), fd));
}

void PageSocket::Once(const SidePtr& side, short event, std::function<void()> happened) {
    m_link->Once(*side, event, std::move(happened));
}

void PageSocket::Elsewhere(std::function<void()> work, std::function<void()> then) {
    m_link->Elsewhere(std::move(work), std::move(then));
}

void PageSocket::Text(std::string_view text) {
    m_link->Write(true, {BufferOf(text)});
}

void PageSocket::Binary(std::string_view first, std::string_view second) {
    m_link->Write(false, {BufferOf(first), BufferOf(second)});
}

void PageSocket::Watch(Wakeup& wakeup, std::function<void()> happened) {
    m_link->Watch(wakeup, std::move(happened));
}

PageSocket::TimerPtr PageSocket::MakeTimer() {
    return std::make_unique<EventLoop::Timer>(m_link->Loop());
}

void PageSocket::At(const TimerPtr& timer, Clock::time_point when, std::function<void()> happened) {
    m_link->At(*timer, when, std::move(happened));
}

} // namespace host
