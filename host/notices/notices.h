// Everybody who is told of events: a webhook and an MQTT broker.
#pragma once

#include <array>
#include <optional>
#include <string>
#include <string_view>

#include "host/notices/line.h"
#include "host/notices/mqtt.h"

namespace host {

// Thread-safe. Whoever tells of an event waits for nobody here.
class Notices {
public:
    // Their words in the interface for programs.
    static constexpr std::array<std::string_view, 2> kNames{"webhook", "mqtt"};

    // The first two outlive the object. `folder` gets a small file for each: how far it has come.
    Notices(EventLog& events, PreferenceStore& preferences, const std::string& folder, NoticeAccess access);

    // Null for another word.
    [[nodiscard]] NoticeLine* Find(std::string_view name) noexcept;

private:
    NoticeLine m_webhook;
    NoticeLine m_mqtt;
};

} // namespace host
