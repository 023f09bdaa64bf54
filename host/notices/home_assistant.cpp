#include "host/notices/topics.h"

#include <string_view>

#include <nlohmann/json.hpp>

#include "host/tls/digest.h"

namespace host {

std::vector<DiscoveredEntity> HomeAssistantEntities(const MqttPreferences& mqtt, const std::string& camera) {
    using Json = nlohmann::ordered_json;
    const Topics topics(mqtt.topic);
    // Names there have letters, digits, "_" and "-" alone.
    const std::string id = "morrowstream_" + Sha256(mqtt.topic + '\n' + camera).substr(0, 16);
    const Json device{{"identifiers", Json::array({id})},
                      {"name", camera},
                      {"model", "Morrowstream"},
                      {"sw_version", MORROWSTREAM_VERSION}};
    std::vector<DiscoveredEntity> entities;
    const auto add = [&](std::string_view component, const std::string& what, Json own) {
        own["unique_id"] = id + "_" + what;
        own["availability_topic"] = topics.Status();
        own["device"] = device;
        entities.push_back(
            {mqtt.discoveryTopic + "/" + std::string(component) + "/" + id + "/" + what + "/config",
             own.dump(-1, ' ', false, Json::error_handler_t::replace)});
    };
    add("binary_sensor", "connected",
        {{"name", "Connected"},
         {"device_class", "connectivity"},
         {"state_topic", topics.OfCamera(camera, "connected")}});
    add("binary_sensor", "motion",
        {{"name", "Motion"}, {"device_class", "motion"}, {"state_topic", topics.OfCamera(camera, "motion")}});
    if (mqtt.snapshots)
        add("camera", "picture", {{"name", "Picture"}, {"topic", topics.OfCamera(camera, "picture")}});
    return entities;
}

} // namespace host
