#include <array>
#include <cmath>
#include <cstdint>
#include <span>
#include <string_view>
#include <utility>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/feed/feed_table.h"
#include "host/http/page_socket.h"
#include "host/site/live/pages.h"
#include "host/site/live/tile_board.h"
#include "host/sources/source_table.h"
#include "kit/packer/framing.h"

namespace host {
namespace {

constexpr std::size_t kPictureHeaderBytes = 20;

std::array<unsigned char, kPictureHeaderBytes> PictureHeader(const TileBoard::Outgoing& outgoing) {
    std::array<unsigned char, kPictureHeaderBytes> header{1};
    kit::PutLittleEndian(&header[4], outgoing.id);
    kit::PutLittleEndian(&header[8], static_cast<std::uint32_t>(outgoing.picture->Sequence()));
    kit::PutLittleEndian(&header[12], outgoing.picture->ArrivalUnixMs());
    return header;
}

// The figures of all cameras with the host's time (Unix milliseconds), against which the page tells how old a
// picture is: its own clock may be wrong.
std::string StateJson(const LivePages& pages, const Offered& offered, std::span<const FeedPtr> seen) {
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    std::vector<std::string_view> may;
    if (offered.settings)
        may.emplace_back("settings");
    if (offered.links)
        may.emplace_back("links");
    return JsonText({{"type", "state"},
                     {"now", now.count()},
                     {"uptime", std::round(pages.counters.Uptime() * 10) / 10},
                     {"demo", pages.demo},
                     {"may", may},
                     {"version", MORROWSTREAM_VERSION},
                     {"sources", pages.sources.OwnKeys()},
                     {"cameras", CamerasJson(seen, true)}});
}

class TilesSession final : public PageSocket {
public:
    TilesSession(Stream stream, const Request& request, const Offered& offered, const Rights& rights,
                 const LivePages& pages)
        : PageSocket(pages.loops.Choose(), std::move(stream), request, pages.limits),
          m_watching(pages.counters, SessionKind::Tiles), m_pages(pages), m_offered(offered),
          m_rights(rights), m_heartbeat(MakeTimer()),
          m_board(m_newPicture, pages.limits.ackDeadline, pages.counters) {
        m_pages.feeds.AddWatcher(m_tableChange);
    }
    ~TilesSession() override { m_pages.feeds.RemoveWatcher(m_tableChange); }

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
            const std::vector<FeedPtr> seen = SeenFeeds(m_pages.feeds, m_rights);
            m_board.SetFeeds(seen);
            m_state = StateJson(m_pages, m_offered, seen);
            return Text(m_state);
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
            ++m_pages.counters.sent;
            return Binary({reinterpret_cast<const char*>(m_header.data()), m_header.size()}, jpeg);
        }
    }

    const WatchGuard m_watching;
    const LivePages& m_pages;
    const Offered m_offered;
    const Rights m_rights; // others end the session
    Wakeup m_newPicture;
    Wakeup m_tableChange;
    TimerPtr m_heartbeat;
    TileBoard m_board;
    bool m_statePending = false;
    // The message that is being written.
    std::string m_state;
    TileBoard::Outgoing m_outgoing;
    std::array<unsigned char, kPictureHeaderBytes> m_header{};
};

} // namespace

void LivePages::StartTiles(Stream stream, const Request& request, const Offered& offered,
                           const Rights& rights, std::shared_ptr<const void> held) const {
    PageSocket::Start(std::make_unique<TilesSession>(std::move(stream), request, offered, rights, *this),
                      std::move(held));
}

} // namespace host
