#include "host/feed/figures.h"

#include <array>
#include <cstdio>

#include "host/base/json.h"

namespace host {
namespace {

std::string CameraJson(const CameraFigures& camera, bool withId) {
    std::string json = "{";
    if (withId)
        json += "\"id\":" + std::to_string(camera.id) + ",";
    json += "\"name\":" + JsonString(camera.name) + ",\"type\":" + JsonString(camera.type) +
            ",\"connected\":" + (camera.connected ? "true" : "false") +
            ",\"frames\":" + std::to_string(camera.frames) + ",\"failed\":" + std::to_string(camera.failed) +
            ",\"fps\":" + FixedNumber(camera.fps, 2) + ",\"width\":" + std::to_string(camera.width) +
            ",\"height\":" + std::to_string(camera.height) +
            ",\"age\":" + (camera.age ? FixedNumber(*camera.age, 3) : "null");
    return json + "}";
}

} // namespace

std::string FixedNumber(double value, int digits) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return text.data();
}

std::string CamerasJson(const FeedTable& feeds, bool withId) {
    std::string json = "[";
    for (const CameraFigures& camera : feeds.Figures()) {
        if (json.size() > 1)
            json += ",";
        json += CameraJson(camera, withId);
    }
    return json + "]";
}

} // namespace host
