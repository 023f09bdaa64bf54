// What Home Assistant is told so that each camera stands there by itself (its "MQTT discovery").
#pragma once

#include <string>
#include <vector>

#include "host/preferences/preferences.h"

namespace host {

struct DiscoveredEntity {
    std::string topic; // of its configuration
    std::string json;
};
// Of a camera: whether a phone sends, whether something moves, and the picture where pictures are sent. All
// of them under one device, whose identity is the camera's name and the begin of the topics.
std::vector<DiscoveredEntity> HomeAssistantEntities(const MqttPreferences& mqtt, const std::string& camera);

} // namespace host
