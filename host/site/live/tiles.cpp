#include "host/site/live/tiles.h"

#include <array>
#include <cstdint>
#include <utility>

#include "host/http/page_socket.h"
#include "host/packer/framing.h"
#include "host/site/live/tile_board.h"
#include "host/site/monitor/report.h"

namespace host {
namespace {

namespace asio = boost::asio;

constexpr std::size_t kPictureHeaderBytes = 20;

std::array<unsigned char, kPictureHeaderBytes> PictureHeader(const TileBoard::Outgoing& outgoing) {
    std::array<unsigned char, kPictureHeaderBytes> header{1};
    PutLittleEndian(&header[4], outgoing.id);
    PutLittleEndian(&header[8], static_cast<std::uint32_t>(outgoing.picture->Sequence()));
    PutLittleEndian(&header[12], outgoing.picture->ArrivalUnixMs());
    return header;
}

class TilesSession final : public PageSocket {
public:
    TilesSession(Descriptor socket, const Request& request, const Services& services)
        : PageSocket(std::move(socket), request, services.limits, services.stop), m_services(services),
          m_heartbeat(MakeTimer()), m_board(m_newPicture, services.limits.ackDeadline, services.counters) {
        m_services.feeds.AddWatcher(m_tableChange);
    }
    ~TilesSession() { m_services.feeds.RemoveWatcher(m_tableChange); }

private:
    void OnOpen() override {
        Watch(m_tableChange, [this] { m_statePending = true; });
        Watch(m_newPicture, [] {});
        AwaitHeartbeat();
        m_statePending = true;
    }

    void AwaitHeartbeat() {
        At(m_heartbeat, Clock::now() + m_limits.stateInterval, [this] {
            if (m_board.IsOverdue(Clock::now()))
                return Close();
            m_statePending = true;
            AwaitHeartbeat();
        });
    }

    bool OnMessage(std::string_view message) override { return m_board.OnMessage(message); }

    // The state first: it tells the page which cameras there are.
    void SendNext() override {
        if (m_statePending) {
            m_statePending = false;
            m_board.SetFeeds(m_services.feeds.List());
            m_state = StateJson(m_services);
            return Text(asio::buffer(m_state));
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
            return Binary(asio::buffer(m_header), asio::buffer(jpeg));
        }
    }

    const Services& m_services;
    Wakeup m_newPicture;
    Wakeup m_tableChange;
    Timer m_heartbeat;
    TileBoard m_board;
    bool m_statePending = false;
    // What is being written.
    std::string m_state;
    TileBoard::Outgoing m_outgoing;
    std::array<unsigned char, kPictureHeaderBytes> m_header{};
};

} // namespace

void ServeTiles(Descriptor socket, const Request& request, const Services& services) {
    const WatchGuard watching(services.counters, SessionKind::Tiles);
    TilesSession(std::move(socket), request, services).Run();
}

} // namespace host
