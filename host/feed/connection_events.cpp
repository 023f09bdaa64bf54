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

void ConnectionEvents::LookAtHosts(const LiveHosts& hosts) {
    const auto tell = [&](EventKind kind, const std::string& node, const char* what) {
        if (hosts.IsFirst())
            m_log.Tell({.kind = kind, .text = "The server " + node + what, .details = {{"host", node}}});
    };
    for (const std::string& node : hosts.silent) {
        // One that was gone before this host came was told of by another one.
        if (m_live.contains(node) && m_silent.insert(node).second)
            tell(EventKind::HostLost, node, " of the cluster does not answer any more.");
    }
    for (const std::string& node : hosts.live) {
        if (m_silent.erase(node) > 0)
            tell(EventKind::HostBack, node, " of the cluster is there again.");
    }
    m_live.insert(hosts.live.begin(), hosts.live.end());
}

void ConnectionEvents::Look(const FeedTable& feeds, const LiveHosts& hosts, Clock::time_point now) {
    LookAtHosts(hosts);
    // Both are in the order of names, so that of ten thousand cameras none has to be found.
    auto at = m_stories.begin();
    for (const FeedPtr& feed : feeds.List()) {
        // A camera that was removed, and comes back, begins anew; so does one whose phone comes back from
        // another host, whose it was to tell meanwhile.
        while (at != m_stories.end() && at->first < feed->Name())
            at = m_stories.erase(at);
        const bool known = at != m_stories.end() && at->first == feed->Name();
        if (std::string node = feed->HostElsewhere(); !node.empty()) {
            m_elsewhere[feed->Name()] = std::move(node);
            if (known)
                at = m_stories.erase(at);
            continue;
        }
        if (!known)
            at = m_stories.emplace_hint(at, feed->Name(), Story{});
        Story& story = (at++)->second;
        const bool connected = feed->IsConnected() && feed->HasPicture();
        if (const auto former = m_elsewhere.extract(feed->Name());
            former && !connected && !hosts.Lives(former.mapped()))
            story = {.connection = ConnectionStory::Connected(), .orphan = true};
        // One that has never sent a picture has nothing to be told of.
        const auto told = story.connection.Look(connected, now);
        if (!told || (story.orphan && !*told && !hosts.IsFirst()))
            continue;
        m_log.Tell({.kind = *told ? EventKind::CameraConnected : EventKind::CameraLost,
                    .camera = feed->Name(),
                    .text = *told ? "A phone is connected." : "The phone is not connected any more."});
    }
    m_stories.erase(at, m_stories.end());
}

} // namespace host
