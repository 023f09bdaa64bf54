// What the host does by itself with cameras and their pictures, beside the web server.
#pragma once

#include <string>

#include "host/events/event_log.h"
#include "host/events/refusal_events.h"
#include "host/feed/connection_events.h"
#include "host/feed/feed_table.h"

namespace host {

// Made before the feeds get cameras, and gone after the server and the component. What stands further down
// uses what stands above it.
class Services {
public:
    // `recordings`: the folder of recordings; the journal of events stands in it.
    Services(FeedTable& feeds, const std::string& recordings);
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;
    ~Services();

    [[nodiscard]] EventLog& Events() noexcept { return m_events; }

    // Called by the host's ticker, after the feeds have looked for connections.
    void Tick();

private:
    FeedTable& m_feeds;
    EventLog m_events;
    RefusalEvents m_refusals{m_events};
    ConnectionEvents m_connections{m_events};
};

} // namespace host
