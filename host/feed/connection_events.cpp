#include "host/feed/connection_events.h"

#include <algorithm>

namespace host {

std::optional<bool> ConnectionStory::Look(bool connected, Clock::time_point now) {
    if (!m_since || connected != m_connected) {
        m_connected = connected;
        m_since = now;
    }
    if (connected == m_told)
        return std::nullopt;
    if (m_lost && now - *m_lost >= kRemember) {
        m_losses = 0;
        m_lost.reset();
    }
    Clock::duration stays{};
    if (!connected)
        stays = std::min(kLostAfter * (1 << std::min(m_losses, 5U)), kLostAfterAtMost);
    else if (m_lost)
        stays = kBackAfter;
    if (now - *m_since < stays)
        return std::nullopt;
    m_told = connected;
    if (!connected) {
        ++m_losses;
        m_lost = now;
    }
    return m_told;
}

void ConnectionEvents::Look(const FeedTable& feeds, Clock::time_point now) {
    std::map<std::string, ConnectionStory> stories;
    for (const FeedPtr& feed : feeds.List()) {
        // A camera that was removed, and comes back, begins anew; so does one whose phone comes back from
        // another host, whose it was to tell meanwhile.
        if (feed->IsElsewhere())
            continue;
        const auto known = m_stories.find(feed->Name());
        ConnectionStory& story = stories[feed->Name()];
        if (known != m_stories.end())
            story = known->second;
        // One that has never sent a picture has nothing to be told of.
        if (const auto told = story.Look(feed->IsConnected() && feed->HasPicture(), now))
            m_log.Tell({.kind = *told ? EventKind::CameraConnected : EventKind::CameraLost,
                        .camera = feed->Name(),
                        .text = *told ? "A phone is connected." : "The phone is not connected any more."});
    }
    m_stories.swap(stories);
}

} // namespace host
