#include "host/site/monitor/report.h"

#include <array>
#include <cstdio>

#include "platform/text.h"

namespace host {
namespace {

std::string Number(double value, int digits) {
    std::array<char, 64> text{};
    std::snprintf(text.data(), text.size(), "%.*f", digits, value);
    return text.data();
}

double Uptime(const Services& services) {
    return std::chrono::duration<double>(Clock::now() - services.started).count();
}

std::string CameraJson(const CameraFigures& camera, bool withId) {
    std::string json = "{";
    if (withId)
        json += "\"id\":" + std::to_string(camera.id) + ",";
    json += "\"name\":" + JsonString(camera.name) + ",\"type\":" + JsonString(camera.type) +
            ",\"connected\":" + (camera.connected ? "true" : "false") +
            ",\"frames\":" + std::to_string(camera.frames) + ",\"failed\":" + std::to_string(camera.failed) +
            ",\"fps\":" + Number(camera.fps, 2) + ",\"width\":" + std::to_string(camera.width) +
            ",\"height\":" + std::to_string(camera.height) +
            ",\"age\":" + (camera.age ? Number(*camera.age, 3) : "null");
    return json + "}";
}

std::string CamerasJson(const Services& services, bool withId) {
    std::string json = "[";
    for (const CameraFigures& camera : services.feeds.Figures()) {
        if (json.size() > 1)
            json += ",";
        json += CameraJson(camera, withId);
    }
    return json + "]";
}

// The keys of the host's own sources.
std::string SourcesJson(const Services& services) {
    std::string json = "[";
    for (const std::string& key : services.sources->OwnKeys())
        json += (json.size() > 1 ? "," : "") + JsonString(key);
    return json + "]";
}

} // namespace

std::string JsonString(std::string_view text) {
    std::string json = "\"";
    for (const char c : platform::ToUtf8(platform::FromUtf8(text))) {
        const auto byte = static_cast<unsigned char>(c);
        if (c == '"' || c == '\\') {
            json += '\\';
            json += c;
        } else if (byte < 32 || byte == 127) {
            std::array<char, 8> escape{};
            std::snprintf(escape.data(), escape.size(), "\\u%04x", static_cast<unsigned>(byte));
            json += escape.data();
        } else {
            json += c;
        }
    }
    return json + "\"";
}

std::string HealthJson(const Services& services) {
    return "{\"status\":\"ok\",\"uptime\":" + Number(Uptime(services), 1) +
           ",\"version\":" + JsonString(MORROWSTREAM_VERSION) +
           ",\"cameras\":" + CamerasJson(services, false) + "}\n";
}

std::string StateJson(const Services& services) {
    // The page counts every age on this clock, since its own may be wrong.
    const auto now = std::chrono::duration_cast<std::chrono::milliseconds>(
        std::chrono::system_clock::now().time_since_epoch());
    return "{\"type\":\"state\",\"now\":" + std::to_string(now.count()) +
           ",\"uptime\":" + Number(Uptime(services), 1) + ",\"demo\":" + (services.demo ? "true" : "false") +
           ",\"version\":" + JsonString(MORROWSTREAM_VERSION) + ",\"sources\":" + SourcesJson(services) +
           ",\"cameras\":" + CamerasJson(services, true) + "}";
}

} // namespace host
