// Recording as the host does it: what the preferences say, told in its events.
#pragma once

#include <string>
#include <vector>

#include "host/events/event_log.h"
#include "host/preferences/store.h"
#include "host/recordings/recorder.h"
#include "host/recordings/recordings.h"

namespace host {

RetentionLimits LimitsOf(const Preferences& preferences);

// What it is given outlives it.
class RecordingService {
public:
    // Before there are several threads: it listens to the preferences.
    RecordingService(const std::string& folder, EventLog& events, PreferenceStore& preferences);
    RecordingService(const RecordingService&) = delete;
    RecordingService& operator=(const RecordingService&) = delete;

    // To be given to the feeds before they get cameras; told when something moves.
    [[nodiscard]] Recorder& Recording() noexcept { return m_recorder; }
    // For looking back.
    [[nodiscard]] Recordings& Recorded() noexcept { return m_recordings; }

    // The cameras of the settings, every second. Not before they are all known.
    void Follow(const std::vector<std::string>& cameras) {
        m_library.SetPresent(cameras);
        m_recordings.CloseIdle();
    }

private:
    void Apply(const Preferences& preferences);

    Disk m_disk;
    Library m_library;
    Recorder m_recorder;
    Recordings m_recordings;
};

} // namespace host
