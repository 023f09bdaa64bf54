#include <algorithm>
#include <array>
#include <charconv>
#include <cmath>
#include <fstream>
#include <span>
#include <vector>

#include <nlohmann/json.hpp>

#include "host/feed/feed_table.h"
#include "host/site/monitor/pages.h"
#include "host/sources/source_table.h"

namespace host {
namespace {

// As short as it can be and read back.
std::string Number(double value) {
    std::array<char, 400> text{};
    const auto end =
        std::to_chars(text.data(), text.data() + text.size(), value, std::chars_format::fixed).ptr;
    return {text.data(), end};
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

class MetricsText {
public:
    explicit MetricsText(std::string_view node)
        : m_node(node.empty() ? "" : ",node=\"" + Label(node) + "\"") {}

    void Family(std::string_view name, std::string_view type, std::string_view help) {
        m_name = "morrowstream_" + std::string(name);
        m_text += "# HELP " + m_name + " " + std::string(help) + "\n# TYPE " + m_name + " " +
                  std::string(type) + "\n";
    }
    void Sample(const std::string& labels, const std::string& value, std::string_view suffix = "") {
        m_text.append(m_name).append(suffix).append(labels).append(" ").append(value).append("\n");
    }
    void Single(std::string_view name, std::string_view type, std::string_view help,
                const std::string& value) {
        Family(name, type, help);
        Sample("", value);
    }
    // A family with a word of a fixed list as its one label.
    void ByWord(std::string_view label, std::span<const std::string_view> words,
                std::span<const std::atomic<std::uint64_t>> counts) {
        for (std::size_t i = 0; i < words.size(); ++i)
            Sample(Labels(label, words[i]), std::to_string(counts[i]));
    }
    void Distribution(std::string_view camera, const Histogram& histogram) {
        const std::string inner = OfCamera(camera);
        std::uint64_t below = 0;
        for (std::size_t range = 0; range <= Histogram::kEnds.size(); ++range) {
            below += histogram.Count(range);
            const std::string end =
                range < Histogram::kEnds.size() ? Number(Histogram::kEnds[range]) : "+Inf";
            Sample("{" + inner + ",le=\"" + end + "\"}", std::to_string(below), "_bucket");
        }
        Sample("{" + inner + "}", Number(histogram.Seconds()), "_sum");
        Sample("{" + inner + "}", std::to_string(below), "_count");
    }
    static std::string Labels(std::string_view label, std::string_view value) {
        return "{" + std::string(label) + "=\"" + Label(value) + "\"}";
    }
    // In a cluster with the host that has it.
    [[nodiscard]] std::string CameraLabels(std::string_view camera) const {
        return "{" + OfCamera(camera) + "}";
    }
    [[nodiscard]] std::string Take() { return std::move(m_text); }

private:
    [[nodiscard]] std::string OfCamera(std::string_view camera) const {
        return "camera=\"" + Label(camera) + "\"" + m_node;
    }

    const std::string m_node; // what stands behind the label of a camera
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

struct Camera {
    CameraFigures figures;
    const CameraMeters& meters;
};

void AddCameras(MetricsText& metrics, std::span<const Camera> cameras) {
    const auto family = [&](std::string_view name, std::string_view type, std::string_view help, auto value) {
        metrics.Family(name, type, help);
        for (const Camera& camera : cameras) {
            if (const std::string text = value(camera); !text.empty())
                metrics.Sample(metrics.CameraLabels(camera.figures.name), text);
        }
    };
    family("camera_frames_total", "counter", "Pictures received and decoded.",
           [](const Camera& c) { return std::to_string(c.figures.frames); });
    family("camera_failed_total", "counter", "Pictures received that could not be decoded.",
           [](const Camera& c) { return std::to_string(c.figures.failed); });
    family("camera_fps", "gauge", "Pictures a second over the last seconds.",
           [](const Camera& c) { return Number(c.figures.fps); });
    family("camera_connected", "gauge", "1 while a phone is connected.",
           [](const Camera& c) { return std::string(c.figures.connected ? "1" : "0"); });
    family("camera_last_frame_age_seconds", "gauge",
           "Seconds since the last picture; absent before the first.",
           [](const Camera& c) { return c.figures.age ? Number(*c.figures.age) : std::string(); });
    family("camera_first_picture_seconds", "gauge",
           "From the request of the newest connection that brought a picture until that picture.",
           [](const Camera& c) {
               const std::int64_t time = c.meters.firstPictureNanoseconds;
               return time > 0 ? Number(static_cast<double>(time) * 1e-9) : std::string();
           });
    family("camera_credit_stalls_total", "counter",
           "Pictures whose handling outlasted the credit that a phone always has.",
           [](const Camera& c) { return std::to_string(c.meters.creditStalls); });
    family(
        "camera_credit_stall_seconds_total", "counter", "How long phones had to wait for credit by that.",
        [](const Camera& c) { return Number(static_cast<double>(c.meters.creditStallNanoseconds) * 1e-9); });
}

void AddWork(MetricsText& metrics, std::span<const Camera> cameras) {
    const auto family = [&](std::string_view name, std::string_view help,
                            const Histogram CameraMeters::*times) {
        metrics.Family(name, "histogram", help);
        // A camera without a phone would add nothing but zeroes.
        for (const Camera& camera : cameras) {
            if (camera.figures.frames > 0)
                metrics.Distribution(camera.figures.name, camera.meters.*times);
        }
    };
    family("camera_decode_seconds", "Processor time of reading and decoding a picture.",
           &CameraMeters::decode);
    family("camera_encode_seconds", "Processor time of encoding a picture for browsers.",
           &CameraMeters::encode);
}

// Of those of the cameras that are recorded.
void AddRecordings(MetricsText& metrics, const Recorder* recorder, std::span<const Camera> cameras) {
    if (recorder == nullptr)
        return;
    metrics.Single("recording_paused", "gauge", "1 while what is to be recorded cannot be.",
                   recorder->PausedBecause().empty() ? "0" : "1");
    const std::vector<CameraRecording> recordings = recorder->Figures();
    const auto family = [&](std::string_view name, std::string_view type, std::string_view help, auto value) {
        metrics.Family(name, type, help);
        for (const CameraRecording& recording : recordings) {
            if (std::ranges::any_of(cameras,
                                    [&](const Camera& c) { return c.figures.name == recording.camera; }))
                metrics.Sample(metrics.CameraLabels(recording.camera), std::to_string(value(recording)));
        }
    };
    family("camera_recording", "gauge", "1 while a file of the camera is being written.",
           [](const CameraRecording& r) { return r.recording ? 1 : 0; });
    family("camera_recorded_pictures_total", "counter", "Pictures recorded.",
           [](const CameraRecording& r) { return r.pictures; });
    family("camera_recorded_bytes_total", "counter", "Their bytes.",
           [](const CameraRecording& r) { return r.bytes; });
    family("camera_recording_dropped_total", "counter",
           "Pictures that were not recorded, because the disk was too slow.",
           [](const CameraRecording& r) { return r.dropped; });
}

void AddSessions(MetricsText& metrics, const MonitorPages& monitor, std::span<const Camera> cameras) {
    const Counters& counters = monitor.counters;
    metrics.Family("sessions_total", "counter", "Sessions that have begun, by kind.");
    metrics.ByWord("kind", kSessionNames, counters.sessions);
    // The component's own sessions show in the host as connected cameras and packers at work.
    const auto connected = static_cast<std::uint64_t>(
        std::ranges::count_if(cameras, [](const Camera& camera) { return camera.figures.connected; }));
    const std::uint64_t packers = monitor.packers.open;
    const std::uint64_t pages = counters.Watching(SessionKind::Page);
    metrics.Family("sessions", "gauge", "Sessions that are open, by kind.");
    for (std::size_t i = 0; i < kSessionNames.size(); ++i) {
        const auto kind = static_cast<SessionKind>(i);
        std::uint64_t open = counters.Watching(kind);
        if (kind == SessionKind::Upload)
            open = connected;
        else if (kind == SessionKind::View)
            open = packers > pages ? packers - pages : 0;
        metrics.Sample(MetricsText::Labels("kind", kSessionNames[i]), std::to_string(open));
    }
    metrics.Family("refusals_total", "counter", "Connections and requests refused, by reason.");
    metrics.ByWord("reason", kRefusalNames, counters.refusals);
}

void AddNotices(MetricsText& metrics, Notices* notices) {
    if (notices == nullptr)
        return;
    std::vector<std::pair<std::string_view, NoticeState>> states;
    states.reserve(std::size(Notices::kNames));
    for (const std::string_view channel : Notices::kNames)
        states.emplace_back(channel, notices->Find(channel)->State());
    const auto family = [&](std::string_view name, std::string_view type, std::string_view help,
                            std::uint64_t NoticeState::*figure) {
        metrics.Family(name, type, help);
        for (const auto& [channel, state] : states)
            metrics.Sample(MetricsText::Labels("channel", channel), std::to_string(state.*figure));
    };
    family("notices_waiting", "gauge", "Events that a receiver of notices has still to be told of.",
           &NoticeState::waiting);
    family("notices_sent_total", "counter", "Notices that the receiver has taken.", &NoticeState::taken);
    family("notices_failed_total", "counter", "Tries that came to nothing, each of which is repeated.",
           &NoticeState::failures);
    family("notices_refused_total", "counter", "Notices that the receiver refused for good.",
           &NoticeState::refused);
    family("notices_passed_over_total", "counter", "Notices that nobody took for too long.",
           &NoticeState::tooOld);
}

void AddCluster(MetricsText& metrics, const std::function<ClusterFigures()>& cluster) {
    if (!cluster)
        return;
    const ClusterFigures figures = cluster();
    metrics.Single("cluster_connected", "gauge", "1 while a server of the message engine can be reached.",
                   figures.connected ? "1" : "0");
    metrics.Single("cluster_reconnections_total", "counter",
                   "Connections to it that were lost and found again.", std::to_string(figures.connections));
    const auto family = [&](std::string_view name, std::string_view help, std::uint64_t in,
                            std::uint64_t out) {
        metrics.Family(name, "counter", help);
        metrics.Sample(MetricsText::Labels("direction", "in"), std::to_string(in));
        metrics.Sample(MetricsText::Labels("direction", "out"), std::to_string(out));
    };
    family("cluster_messages_total", "Messages of the hosts and the engine.", figures.messagesIn,
           figures.messagesOut);
    family("cluster_bytes_total", "Their bytes.", figures.bytesIn, figures.bytesOut);
    metrics.Single("cluster_seals_refused_total", "counter",
                   "Messages and values that no host of the cluster had sealed for their place.",
                   std::to_string(figures.refused));
    metrics.Single("cluster_conflicts_total", "counter", "Writes that those of another host came before.",
                   std::to_string(figures.conflicts));
}

// What tells of all cameras together.
void AddTotals(MetricsText& metrics, const MonitorPages& monitor, std::span<const Camera> cameras) {
    const Counters& counters = monitor.counters;
    AddSessions(metrics, monitor, cameras);
    AddNotices(metrics, monitor.notices);
    AddCluster(metrics, monitor.cluster);
    metrics.Single("pictures_encoded_total", "counter", "Pictures encoded for browsers.",
                   std::to_string(kit::Picture::EncodedCount()));
    metrics.Single("pictures_passed_on_total", "counter", "Pictures of phones that went on without encoding.",
                   std::to_string(kit::Picture::PassedOnCount()));
    metrics.Single("pictures_sent_total", "counter", "Pictures sent to watchers.",
                   std::to_string(counters.sent));
    metrics.Single("pictures_skipped_total", "counter", "Pictures that a watcher missed for a newer one.",
                   std::to_string(counters.skipped));
    metrics.Single("packers", "gauge", "Frame packers at work, one for each viewing phone or page.",
                   std::to_string(monitor.packers.open));
    metrics.Single("packed_pictures_total", "counter", "Pictures packed for viewing phones and pages.",
                   std::to_string(monitor.packers.frames));
    metrics.Single("packed_bytes_total", "counter", "Their bytes, headers included.",
                   std::to_string(monitor.packers.bytes));
    metrics.Single("packing_cpu_seconds_total", "counter", "Processor time that packing them took.",
                   Number(static_cast<double>(monitor.packers.cpuNanoseconds) * 1e-9));
    metrics.Single("watchers", "gauge", "Live streams that are open.", std::to_string(counters.Watchers()));
    metrics.Single("connections", "gauge", "Connections that the web server holds.",
                   std::to_string(counters.open));
    metrics.Single("connections_total", "counter", "Connections accepted.",
                   std::to_string(counters.accepted));
    metrics.Single("requests_total", "counter", "Requests with a readable head.",
                   std::to_string(counters.requests));
    const ProcessFigures process = ReadProcessFigures();
    metrics.Single("process_resident_memory_bytes", "gauge", "Resident memory.",
                   std::to_string(process.residentBytes));
    metrics.Single("process_threads", "gauge", "Threads of the process.", std::to_string(process.threads));
}

} // namespace

Answer MonitorPages::Metrics(const Rights& rights) const {
    MetricsText metrics(node);
    const std::vector<FeedPtr> list = SeenFeeds(feeds, rights); // holds what the figures refer to
    std::vector<Camera> cameras;
    // What another host's phone sends is in that one's figures.
    for (const FeedPtr& feed : list) {
        if (CameraFigures figures = feed->Figures(); figures.host.empty())
            cameras.push_back({std::move(figures), feed->Meters()});
    }
    AddCameras(metrics, cameras);
    AddWork(metrics, cameras);
    AddRecordings(metrics, recorder, cameras);
    if (rights.SeesAll())
        AddTotals(metrics, *this, cameras);
    metrics.Single("ready", "gauge", "1 while /readyz says so.", Trouble().empty() ? "1" : "0");
    metrics.Single("settings_written", "gauge", "1 while the last change of the settings is on disk.",
                   settings.IsWritten() && preferences.IsWritten() ? "1" : "0");
    metrics.Single("uptime_seconds", "gauge", "Seconds since the host started.", Number(counters.Uptime()));
    Answer answer;
    answer.type = "text/plain; version=0.0.4; charset=utf-8";
    answer.body = metrics.Take();
    answer.headers["Cache-Control"] = "no-store";
    return answer;
}

std::string MonitorPages::Trouble() const {
    std::string trouble = settings.Trouble();
    if (trouble.empty() && !preferences.IsWritten())
        trouble = "The last change of the host's preferences could not be written to disk.";
    return trouble;
}

Answer MonitorPages::Health(const Rights& rights) const {
    const std::string trouble = Trouble();
    return Answer::Json(200, {{"status", trouble.empty() ? "ok" : trouble},
                              {"uptime", std::round(counters.Uptime() * 10) / 10},
                              {"version", MORROWSTREAM_VERSION},
                              {"cameras", CamerasJson(SeenFeeds(feeds, rights), false)}});
}

Answer MonitorPages::Alive() {
    return Answer::Text(200, "ok");
}

Answer MonitorPages::Ready() const {
    const std::string trouble = Trouble();
    return trouble.empty() ? Answer::Text(200, "ready") : Answer::Text(503, trouble);
}

} // namespace host
