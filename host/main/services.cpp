#include "host/main/services.h"

#include "host/log/console.h"

namespace host {

Services::Services(FeedTable& feeds, const std::string& recordings)
    : m_feeds(feeds), m_events(recordings + "/events") {
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
