// Names of MQTT topics, and what Home Assistant is told of them.
#pragma once

#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/preferences/preferences.h"

namespace host {

class Topics {
public:
    explicit Topics(std::string begin) : m_begin(std::move(begin)) {}

    [[nodiscard]] std::string Status() const { return m_begin + "/status"; }
    [[nodiscard]] std::string Event() const { return m_begin + "/event"; }
    [[nodiscard]] std::string OfCamera(std::string_view camera, std::string_view what) const {
        return m_begin + "/cameras/" + Escaped(camera) + "/" + std::string(what);
    }

    // A level of a topic: UTF-8 as it is, percent-encoded what would end the level or be a wildcard, and
    // control characters, which brokers refuse.
    static std::string Escaped(std::string_view name) {
        constexpr std::string_view kDigits = "0123456789ABCDEF";
        std::string escaped;
        for (const char c : name) {
            const auto byte = static_cast<unsigned char>(c);
            if (byte >= ' ' && byte != 0x7F && std::string_view("/+#%").find(c) == std::string_view::npos) {
                escaped += c;
                continue;
            }
            escaped += '%';
            escaped += kDigits[byte >> 4U];
            escaped += kDigits[byte & 15U];
        }
        return escaped;
    }

private:
    const std::string m_begin;
};

// --- What Home Assistant is told so that each camera stands there by itself (its "MQTT discovery") ---

struct DiscoveredEntity {
    std::string topic; // of its configuration
    std::string json;
};
// Of a camera: whether a phone sends, whether something moves, and the picture where pictures are sent. All
// of them under one device, whose identity is the camera's name and the begin of the topics.
std::vector<DiscoveredEntity> HomeAssistantEntities(const MqttPreferences& mqtt, const std::string& camera);

} // namespace host
