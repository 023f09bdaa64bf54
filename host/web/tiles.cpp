#include "host/web/tiles.h"

#include <array>
#include <cerrno>
#include <cstdint>
#include <system_error>
#include <utility>

#include <fcntl.h>

#include <boost/asio/io_context.hpp>
#include <boost/asio/ip/tcp.hpp>
#include <boost/asio/posix/stream_descriptor.hpp>
#include <boost/asio/steady_timer.hpp>
#include <boost/beast/core/flat_buffer.hpp>
#include <boost/beast/http/empty_body.hpp>
#include <boost/beast/http/parser.hpp>
#include <boost/beast/websocket/stream.hpp>

#include "host/web/report.h"
#include "host/web/tile_board.h"

namespace host {
namespace {

namespace asio = boost::asio;
namespace beast = boost::beast;
namespace websocket = beast::websocket;
using asio::ip::tcp;
using boost::system::error_code;

constexpr std::size_t kPictureHeaderBytes = 20;

template <class Number>
void PutLittleEndian(unsigned char* to, Number value) {
    for (std::size_t i = 0; i < sizeof value; ++i)
        to[i] = static_cast<unsigned char>(value >> (8 * i) & 0xFF);
}

std::array<unsigned char, kPictureHeaderBytes> PictureHeader(const TileBoard::Outgoing& outgoing) {
    std::array<unsigned char, kPictureHeaderBytes> header{1};
    PutLittleEndian(&header[4], outgoing.id);
    PutLittleEndian(&header[8], static_cast<std::uint32_t>(outgoing.picture->Sequence()));
    PutLittleEndian(&header[12], outgoing.picture->ArrivalUnixMs());
    return header;
}

// A descriptor of its own for a wake-up, for the event loop to own and close.
int DuplicateOf(const Wakeup& wakeup) {
    const int fd = ::fcntl(wakeup.Fd(), F_DUPFD_CLOEXEC, 0);
    if (fd < 0)
        throw std::system_error(errno, std::generic_category(), "dup");
    return fd;
}

// The stream of one page. It has an event loop of its own, which runs on the thread of the connection; so
// nothing here needs a lock, and a slow page holds up no other.
class TilesSession {
public:
    TilesSession(Descriptor socket, const Request& request, const Services& services)
        : m_services(services), m_feedWake(m_loop, DuplicateOf(m_newPicture)),
          m_tableWake(m_loop, DuplicateOf(m_tableChange)), m_stop(m_loop, DuplicateOf(services.stop)),
          m_timer(m_loop), m_stream(tcp::socket(m_loop, tcp::v4(), socket.Release())),
          m_request(ParseUpgrade(request.head)),
          m_board(m_newPicture, services.limits.ackDeadline, services.counters) {
        m_services.feeds.AddWatcher(m_tableChange);
    }
    TilesSession(const TilesSession&) = delete;
    TilesSession& operator=(const TilesSession&) = delete;
    ~TilesSession() { m_services.feeds.RemoveWatcher(m_tableChange); }

    void Run() {
        websocket::stream_base::timeout timeout{};
        timeout.handshake_timeout = m_services.limits.headDeadline;
        timeout.idle_timeout = m_services.limits.writeStall; // a silent page is pinged before that
        timeout.keep_alive_pings = true;
        m_stream.set_option(timeout);
        m_stream.set_option(websocket::stream_base::decorator([](websocket::response_type& answer) {
            answer.set(beast::http::field::server, "Morrowstream");
        }));
        m_stream.read_message_max(kMaxPageMessageBytes);
        m_stream.auto_fragment(false);
        m_stop.async_wait(asio::posix::stream_descriptor::wait_read, [this](error_code error) {
            if (!error)
                m_loop.stop();
        });
        m_stream.async_accept(m_request, [this](error_code error) {
            if (error)
                return m_loop.stop();
            AwaitTableChange();
            AwaitPicture();
            AwaitHeartbeat();
            Read();
            m_statePending = true;
            Pump();
        });
        m_loop.run();
    }

private:
    static beast::http::request<beast::http::empty_body> ParseUpgrade(const std::string& head) {
        beast::http::request_parser<beast::http::empty_body> parser;
        error_code error;
        parser.put(asio::buffer(head), error);
        return parser.release();
    }

    void AwaitTableChange() {
        m_tableWake.async_wait(asio::posix::stream_descriptor::wait_read, [this](error_code error) {
            if (error)
                return;
            m_tableChange.Clear();
            m_statePending = true;
            AwaitTableChange();
            Pump();
        });
    }

    void AwaitPicture() {
        m_feedWake.async_wait(asio::posix::stream_descriptor::wait_read, [this](error_code error) {
            if (error)
                return;
            m_newPicture.Clear();
            AwaitPicture();
            Pump();
        });
    }

    void AwaitHeartbeat() {
        m_timer.expires_after(m_services.limits.stateInterval);
        m_timer.async_wait([this](error_code error) {
            if (error)
                return;
            if (m_board.IsOverdue(Clock::now()))
                return m_loop.stop();
            m_statePending = true;
            AwaitHeartbeat();
            Pump();
        });
    }

    void Read() {
        m_stream.async_read(m_received, [this](error_code error, std::size_t) {
            if (error)
                return m_loop.stop();
            const auto data = m_received.cdata();
            const std::string_view message(static_cast<const char*>(data.data()), data.size());
            if (!m_stream.got_text() || !m_board.OnMessage(message))
                return m_loop.stop(); // no page of ours talks like that
            m_received.consume(m_received.size());
            Read();
            Pump();
        });
    }

    // Sends what is due, one message at a time: the state first, it tells the page which cameras there are.
    void Pump() {
        if (m_writing)
            return;
        if (m_statePending) {
            m_statePending = false;
            m_board.SetFeeds(m_services.feeds.List());
            m_state = StateJson(m_services);
            m_stream.text(true);
            return Write(asio::buffer(m_state));
        }
        while (auto outgoing = m_board.Next(Clock::now())) {
            m_outgoing = std::move(*outgoing);
            const std::string& jpeg = m_outgoing.picture->Jpeg();
            if (jpeg.empty()) { // it counts as shown
                m_board.OnMessage("ack " + std::to_string(m_outgoing.id) + " " +
                                  std::to_string(static_cast<std::uint32_t>(m_outgoing.picture->Sequence())));
                continue;
            }
            m_header = PictureHeader(m_outgoing);
            ++m_services.counters.sent;
            m_stream.binary(true);
            return Write(std::array<asio::const_buffer, 2>{asio::buffer(m_header), asio::buffer(jpeg)});
        }
    }

    template <class Buffers>
    void Write(const Buffers& buffers) {
        m_writing = true;
        m_stream.async_write(buffers, [this](error_code error, std::size_t) {
            if (error)
                return m_loop.stop();
            m_writing = false;
            Pump();
        });
    }

    const Services& m_services;
    Wakeup m_newPicture;
    Wakeup m_tableChange;
    asio::io_context m_loop{1};
    asio::posix::stream_descriptor m_feedWake;
    asio::posix::stream_descriptor m_tableWake;
    asio::posix::stream_descriptor m_stop;
    asio::steady_timer m_timer;
    websocket::stream<tcp::socket> m_stream;
    const beast::http::request<beast::http::empty_body> m_request;
    TileBoard m_board;
    beast::flat_buffer m_received;
    bool m_statePending = false;
    bool m_writing = false;
    // What is being written.
    std::string m_state;
    TileBoard::Outgoing m_outgoing;
    std::array<unsigned char, kPictureHeaderBytes> m_header{};
};

} // namespace

void ServeTiles(Descriptor socket, const Request& request, const Services& services) {
    const CountGuard watching(services.counters.watchers);
    TilesSession(std::move(socket), request, services).Run();
}

} // namespace host
