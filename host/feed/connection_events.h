// Tells the event log of phones that come and go.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>

#include "host/base/wait.h"
#include "host/events/event_log.h"
#include "host/feed/feed_table.h"

namespace host {

// What is told of one camera's phone.
//
// Coverage comes and goes. So a phone is lost once it has been away for half a minute, and for each time that
// this was told within the last hour, twice as long as that; and when one that was lost is back, it is told
// once it has stayed for some seconds. A phone that comes and goes all day is told of a few times an hour.
class ConnectionStory {
public:
    static constexpr std::chrono::seconds kLostAfter{30};
    static constexpr std::chrono::seconds kLostAfterAtMost{16 * 60};
    static constexpr std::chrono::seconds kBackAfter{5};
    static constexpr std::chrono::minutes kRemember{60};

    // What is to be told now: true that it is connected, false that it is lost.
    std::optional<bool> Look(bool connected, Clock::time_point now);

private:
    bool m_told = false;                      // as connected
    bool m_connected = false;                 // at the last look
    std::optional<Clock::time_point> m_since; // it is so; nothing before the first look
    std::uint32_t m_losses = 0;               // told, the last of them less than kRemember ago
    std::optional<Clock::time_point> m_lost;  // when the last of them was
};

class ConnectionEvents {
public:
    explicit ConnectionEvents(EventLog& log) : m_log(log) {}

    // Called a few times a second by the host's ticker, when the table has looked for connections.
    void Look(const FeedTable& feeds, Clock::time_point now = Clock::now());

private:
    EventLog& m_log;
    std::map<std::string, ConnectionStory> m_stories; // by camera
};

} // namespace host
