#include "host/recordings/recording_service.h"

#include <algorithm>
#include <utility>

namespace host {
namespace {

// The room of a disk is counted in powers of ten, as disks are sold.
constexpr std::uint64_t kMegabyte = 1'000'000;

EventKind EventKindOf(RecordingNews::Kind kind) {
    switch (kind) {
    case RecordingNews::Kind::Paused:
        return EventKind::RecordingPaused;
    case RecordingNews::Kind::Resumed:
        return EventKind::RecordingResumed;
    case RecordingNews::Kind::Dropped:
    case RecordingNews::Kind::IndexLost:
    case RecordingNews::Kind::IndexLocked:
    case RecordingNews::Kind::IndexUnlocked:
    case RecordingNews::Kind::ClockSetBack:
        break;
    }
    return EventKind::RecordingTrouble;
}

TellRecordingNews TellerOf(EventLog& events) {
    return [&events](const RecordingNews& news) {
        events.Tell({.kind = EventKindOf(news.kind), .camera = news.camera, .text = news.text});
    };
}

} // namespace

RetentionLimits LimitsOf(const Preferences& preferences) {
    RetentionLimits limits{.days = preferences.recording.days,
                           .bytes = preferences.recording.megabytes * kMegabyte,
                           .freePercent = preferences.recording.freePercent,
                           .freeBytes = preferences.recording.freeMegabytes * kMegabyte,
                           .cameras = {}};
    for (const auto& [name, camera] : preferences.cameras)
        limits.cameras[name] = {.days = camera.days, .bytes = camera.megabytes * kMegabyte};
    return limits;
}

RecordingService::RecordingService(const std::string& folder, EventLog& events, PreferenceStore& preferences)
    : m_library({.folder = folder, .disk = m_disk, .tell = TellerOf(events), .events = &events}),
      m_recorder(m_library, m_disk, TellerOf(events)), m_recordings(m_library) {
    Apply(*preferences.Now());
    preferences.Listen([this](const Preferences&, const Preferences& now) { Apply(now); });
}

void RecordingService::Apply(const Preferences& preferences) {
    m_library.SetLimits(LimitsOf(preferences));
    std::map<std::string, RecordMode, std::less<>> modes;
    for (const auto& [name, camera] : preferences.cameras)
        modes[name] = camera.record;
    m_recorder.SetModes(std::move(modes));
}

} // namespace host
