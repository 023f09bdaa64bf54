// Chooses the picture that goes to a page next.
//
// One picture of each camera is in flight at a time: the next goes out when the page has drawn and
// acknowledged the last, and it is then the newest, so what a slow page or a slow line cannot take is skipped
// and its lag never grows. Cameras take turns. One thread.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string_view>
#include <vector>

#include "host/base/counters.h"
#include "host/feed/camera_feed.h"

namespace host {

class TileBoard {
public:
    // Pictures of every camera on the board signal `wakeup`.
    TileBoard(Wakeup& wakeup, std::chrono::milliseconds ackDeadline, Counters& counters)
        : m_wakeup(wakeup), m_ackDeadline(ackDeadline), m_counters(counters) {}

    // The cameras there are now. Those that stay keep what is in flight.
    void SetFeeds(const std::vector<FeedPtr>& feeds);
    // A message of the page: "ack ID SEQ" or "show ID ID ...". False for anything else.
    bool OnMessage(std::string_view message);

    struct Outgoing {
        std::uint32_t id = 0;
        kit::PicturePtr picture;
    };
    // The next picture to send, which is in flight from then on.
    std::optional<Outgoing> Next(Clock::time_point now);
    // Whether a picture waits for its acknowledgement for too long.
    [[nodiscard]] bool IsOverdue(Clock::time_point now) const;

private:
    struct Tile {
        FeedPtr feed;
        FeedWatch watch;
        std::uint64_t sent = 0; // sequence of the last picture that went out
        bool inFlight = false;
        Clock::time_point sentAt;
    };
    [[nodiscard]] bool IsShown(std::uint32_t id) const { return !m_shown || m_shown->contains(id); }
    bool OnAck(std::string_view arguments);
    bool OnShow(std::string_view arguments);

    Wakeup& m_wakeup;
    const std::chrono::milliseconds m_ackDeadline;
    Counters& m_counters;
    std::map<std::uint32_t, Tile> m_tiles;
    std::optional<std::set<std::uint32_t>> m_shown; // nothing until the page has said it: all are
    std::uint32_t m_lastTurn = 0;
};

} // namespace host
