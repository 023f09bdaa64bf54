// Tells the event log of phones that come and go.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <set>
#include <string>

#include "host/base/wait.h"
#include "host/events/event_log.h"
#include "host/feed/feed_table.h"
#include "host/feed/source.h"

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

    // Of a phone that was connected, as somebody else has told.
    static ConnectionStory Connected() {
        ConnectionStory story;
        story.m_told = true;
        return story;
    }

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
    //
    // Of several hosts the one that has the phone tells of it. What becomes of the cameras of a host that
    // dies, and that it has died, the first one of those that live tells.
    void Look(const FeedTable& feeds, const LiveHosts& hosts = {}, Clock::time_point now = Clock::now());

private:
    struct Story {
        ConnectionStory connection;
        bool orphan = false; // its host has died
    };
    void LookAtHosts(const LiveHosts& hosts);

    EventLog& m_log;
    std::map<std::string, Story> m_stories;         // by camera
    std::map<std::string, std::string> m_elsewhere; // cameras, and the hosts that have their phones
    std::set<std::string> m_live;                   // hosts, at the last look
    std::set<std::string> m_silent;                 // that were told of
};

} // namespace host
