#include "host/main/services.h"

#include "host/log/console.h"

namespace host {
namespace {

NoticeAccess AccessOf(FeedTable& feeds) {
    return {.isConnected =
                [&feeds](const std::string& camera) {
                    const FeedPtr feed = feeds.Find(camera);
                    return feed && feed->IsConnected();
                },
            .picture =
                [&feeds](const std::string& camera) {
                    const FeedPtr feed = feeds.Find(camera);
                    const kit::PicturePtr picture = feed ? feed->Newest() : nullptr;
                    return picture ? picture->Jpeg() : std::string();
                }};
}

} // namespace

Services::Services(FeedTable& feeds, const Places& places)
    : m_feeds(feeds), m_events(places.recordings + "/events"),
      m_preferences(PreferenceStore::FileBeside(places.settings)),
      m_notices(m_events, m_preferences, places.data, AccessOf(feeds)) {
    Console::Get().SetRefusalListener([this](const Console::Refusal& refusal) { m_refusals.Note(refusal); });
    m_events.Tell({.kind = EventKind::ServerStarted, .text = "The server has started."});
}

Services::~Services() {
    Console::Get().SetRefusalListener(nullptr);
}

void Services::Tick() {
    m_refusals.Tick();
    m_connections.Look(m_feeds);
}

} // namespace host
