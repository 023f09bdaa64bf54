#include "host/notices/notices.h"

#include <utility>

#include "host/notices/webhook.h"

namespace host {

Notices::Notices(EventLog& events, PreferenceStore& preferences, const std::string& folder,
                 NoticeAccess access)
    : m_webhook("The webhook", MakeWebhook, events, preferences, folder + "/webhook-told"),
      m_mqtt(
          "The MQTT broker",
          [&](const NoticeSignals& signals) { return MakeMqtt(signals, std::move(access)); }, events,
          preferences, folder + "/mqtt-told") {
    // The lines end with the object, and the store calls nobody then: it is changed by requests alone.
    preferences.Listen([this](const Preferences&, const Preferences&) {
        m_webhook.Wake();
        m_mqtt.Wake();
    });
}

NoticeLine* Notices::Find(std::string_view name) noexcept {
    return name == kNames[0] ? &m_webhook : name == kNames[1] ? &m_mqtt : nullptr;
}

} // namespace host
