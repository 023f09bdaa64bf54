#include "host/web/report.h"

#include <array>
#include <cstdio>
#include <fstream>

#include <unistd.h>

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

// A label value of the Prometheus text format: backslash, quote and line feed are escaped.
std::string Label(std::string_view text) {
    std::string label;
    for (const char c : text) {
        if (c == '\\' || c == '"')
            label += '\\';
        label += c == '\n' ? "\\n" : std::string(1, c);
    }
    return label;
}

class Metrics {
public:
    void Family(std::string_view name, std::string_view type, std::string_view help) {
        m_name = "morrowstream_" + std::string(name);
        m_text += "# HELP " + m_name + " " + std::string(help) + "\n# TYPE " + m_name + " " +
                  std::string(type) + "\n";
    }
    void Sample(std::string_view label, std::string_view labelValue, const std::string& value) {
        m_text += m_name;
        if (!label.empty())
            m_text += "{" + std::string(label) + "=\"" + Label(labelValue) + "\"}";
        m_text += " " + value + "\n";
    }
    void Single(std::string_view name, std::string_view type, std::string_view help,
                const std::string& value) {
        Family(name, type, help);
        Sample("", "", value);
    }
    [[nodiscard]] std::string Take() { return std::move(m_text); }

private:
    std::string m_text;
    std::string m_name;
};

struct ProcessFigures {
    std::uint64_t residentBytes = 0;
    std::uint64_t threads = 0;
};

ProcessFigures ReadProcessFigures() {
    ProcessFigures figures;
    std::ifstream status("/proc/self/status");
    for (std::string key; status >> key;) {
        std::uint64_t value = 0;
        if (key == "VmRSS:" && status >> value)
            figures.residentBytes = value * 1024;
        else if (key == "Threads:" && status >> value)
            figures.threads = value;
        status.ignore(4096, '\n');
    }
    return figures;
}

void AddCameras(Metrics& metrics, const std::vector<CameraFigures>& cameras) {
    const auto family = [&](std::string_view name, std::string_view type, std::string_view help, auto value) {
        metrics.Family(name, type, help);
        for (const CameraFigures& camera : cameras) {
            if (const std::string text = value(camera); !text.empty())
                metrics.Sample("camera", camera.name, text);
        }
    };
    family("camera_frames_total", "counter", "Pictures received and decoded.",
           [](const CameraFigures& c) { return std::to_string(c.frames); });
    family("camera_failed_total", "counter", "Pictures received that could not be decoded.",
           [](const CameraFigures& c) { return std::to_string(c.failed); });
    family("camera_fps", "gauge", "Pictures a second over the last seconds.",
           [](const CameraFigures& c) { return Number(c.fps, 2); });
    family("camera_connected", "gauge", "1 while a phone is connected.",
           [](const CameraFigures& c) { return std::string(c.connected ? "1" : "0"); });
    family("camera_last_frame_age_seconds", "gauge",
           "Seconds since the last picture; absent before the first.",
           [](const CameraFigures& c) { return c.age ? Number(*c.age, 3) : std::string(); });
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

std::string MetricsText(const Services& services) {
    const Counters& counters = services.counters;
    Metrics metrics;
    AddCameras(metrics, services.feeds.Figures());
    metrics.Single("pictures_encoded_total", "counter", "Pictures encoded for browsers.",
                   std::to_string(Picture::EncodedCount()));
    metrics.Single("pictures_sent_total", "counter", "Pictures sent to watchers.",
                   std::to_string(counters.sent));
    metrics.Single("pictures_skipped_total", "counter", "Pictures that a watcher missed for a newer one.",
                   std::to_string(counters.skipped));
    const PackerCounters& packers = *services.packers;
    metrics.Single("packers", "gauge", "Frame packers at work, one for each viewing phone or page.",
                   std::to_string(packers.open));
    metrics.Single("packed_pictures_total", "counter", "Pictures packed for viewing phones and pages.",
                   std::to_string(packers.frames));
    metrics.Single("packed_bytes_total", "counter", "Their bytes, headers included.",
                   std::to_string(packers.bytes));
    metrics.Single("packing_cpu_seconds_total", "counter", "Processor time that packing them took.",
                   Number(static_cast<double>(packers.cpuNanoseconds) * 1e-9, 6));
    metrics.Single("watchers", "gauge", "Live streams that are open.", std::to_string(counters.watchers));
    metrics.Single("connections", "gauge", "Connections that the web server holds.",
                   std::to_string(counters.open));
    metrics.Single("connections_total", "counter", "Connections accepted.",
                   std::to_string(counters.accepted));
    metrics.Single("requests_total", "counter", "Requests with a readable head.",
                   std::to_string(counters.requests));
    metrics.Single("uploads_total", "counter", "Uploads handed over to the component.",
                   std::to_string(counters.uploads));
    metrics.Single("views_total", "counter", "Viewing phones handed over to the component.",
                   std::to_string(counters.views));
    metrics.Family("refusals_total", "counter", "Connections and requests refused, by reason.");
    for (std::size_t i = 0; i < kRefusalNames.size(); ++i)
        metrics.Sample("reason", kRefusalNames[i], std::to_string(counters.refusals[i]));
    const ProcessFigures process = ReadProcessFigures();
    metrics.Single("process_resident_memory_bytes", "gauge", "Resident memory.",
                   std::to_string(process.residentBytes));
    metrics.Single("process_threads", "gauge", "Threads of the process.", std::to_string(process.threads));
    metrics.Single("uptime_seconds", "gauge", "Seconds since the host started.", Number(Uptime(services), 1));
    return metrics.Take();
}

} // namespace host
