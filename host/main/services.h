// What the host does by itself with cameras and their pictures, beside the web server.
#pragma once

#include <optional>
#include <string>

#include "host/events/event_log.h"
#include "host/events/refusal_events.h"
#include "host/feed/connection_events.h"
#include "host/feed/feed_table.h"
#include "host/motion/watch.h"
#include "host/notices/notices.h"
#include "host/preferences/store.h"
#include "host/recordings/recording_service.h"

namespace host {

// Made before the feeds get cameras, and gone after the server and the component. What stands further down
// uses what stands above it.
class Services {
public:
    struct Places {
        std::string data;       // the data folder
        std::string settings;   // the component's settings file; the preferences stand beside it
        std::string recordings; // the folder of recordings; the journal of events stands in it
    };
    Services(FeedTable& feeds, const Places& places);
    Services(const Services&) = delete;
    Services& operator=(const Services&) = delete;
    ~Services();

    [[nodiscard]] EventLog& Events() noexcept { return m_events; }
    [[nodiscard]] PreferenceStore& Preferences() noexcept { return m_preferences; }
    [[nodiscard]] Notices& Receivers() noexcept { return m_notices; }
    [[nodiscard]] RecordingService& Recording() noexcept { return m_recording; }

    // Called by the host's ticker, after the feeds have looked for connections.
    void Tick(const LiveHosts& hosts = {});

private:
    void Obey(const host::Preferences& preferences);
    void OnMotion(const MotionNews& news);

    FeedTable& m_feeds;
    EventLog m_events;
    PreferenceStore m_preferences;
    Notices m_notices;
    RecordingService m_recording;
    MotionWatch m_motion;
    RefusalEvents m_refusals{m_events};
    ConnectionEvents m_connections{m_events};
    Clock::time_point m_nextFollow{};
};

} // namespace host
