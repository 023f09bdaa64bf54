// What the host itself is set to, past the component's settings: recording, motion, notices, who may watch.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <string_view>

#include "host/preferences/cell_mask.h"

namespace host {

enum class RecordMode { Off, Always, OnMotion };

// Of one camera. Cameras are called by their names in the component's settings.
struct CameraPreferences {
    RecordMode record = RecordMode::Off;
    int days = 0;                // to keep its recordings; 0: as for all
    std::uint64_t megabytes = 0; // of its recordings at most, 10^6 bytes; 0: no limit of its own
    bool motion = false;         // look for motion, also where it records nothing
    int sensitivity = 5;         // 1 (a person close by) to 10 (a leaf)
    CellMask mask{};             // cells where motion does not count
    friend bool operator==(const CameraPreferences&, const CameraPreferences&) = default;
};

// Of all recordings together.
struct RecordingPreferences {
    int days = 7;                       // 0: no limit
    std::uint64_t megabytes = 0;        // 10^6 bytes; 0: no limit
    int freePercent = 5;                // of the disk, to be left to others
    std::uint64_t freeMegabytes = 2048; // the same; whichever of both is more
    friend bool operator==(const RecordingPreferences&, const RecordingPreferences&) = default;
};

// Words of a fixed list, as the choices of the document have them.
using WordSet = std::set<std::string, std::less<>>;

struct WebhookPreferences {
    std::string address; // "https://..."; empty: none is called
    std::string secret;  // of the signature; empty: what is sent bears none
    friend bool operator==(const WebhookPreferences&, const WebhookPreferences&) = default;
};

struct MqttPreferences {
    std::string server; // a name or an address; empty: none
    int port = 1883;
    bool tls = false; // with the system's authorities
    std::string user;
    std::string password;
    std::string topic = "morrowstream"; // what all topics begin with
    bool snapshots = false;             // pictures as well, with each event of a camera
    bool discovery = true;              // tell Home Assistant of each camera
    std::string discoveryTopic = "homeassistant";
    friend bool operator==(const MqttPreferences&, const MqttPreferences&) = default;
};

struct NoticePreferences {
    // Of events that somebody is told of. How telling goes is no event that is told.
    WordSet kinds{"camera-lost", "motion-began", "recording-paused", "recording-trouble"};
    WebhookPreferences webhook{};
    MqttPreferences mqtt{};
    friend bool operator==(const NoticePreferences&, const NoticePreferences&) = default;
};

struct Preferences {
    RecordingPreferences recording{};
    NoticePreferences notices{};
    bool phonesWatchAll = true; // whatever signs in as a phone sees every camera
    std::map<std::string, CameraPreferences, std::less<>> cameras{};

    // What holds for a camera, one that nothing was said of included.
    [[nodiscard]] const CameraPreferences& Of(std::string_view camera) const {
        static const CameraPreferences usual;
        const auto found = cameras.find(camera);
        return found != cameras.end() ? found->second : usual;
    }
    friend bool operator==(const Preferences&, const Preferences&) = default;
};

} // namespace host
