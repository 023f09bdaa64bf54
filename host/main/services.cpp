#include "host/main/services.h"

#include <cmath>
#include <utility>

#include "host/log/console.h"

namespace host {
namespace {

// How late a camera that leaves the settings counts as removed.
constexpr std::chrono::seconds kFollowEvery{1};

NoticeAccess AccessOf(FeedTable& feeds) {
    return {.isConnected =
                [&feeds](const std::string& camera) {
                    const FeedPtr feed = feeds.Find(camera);
                    return feed && feed->IsConnected();
                },
            .picture =
                [&feeds](const std::string& camera) {
                    const FeedPtr feed = feeds.Find(camera);
                    const kit::PicturePtr picture = feed ? feed->Newest() : nullptr;
                    return picture ? picture->Jpeg() : std::string();
                }};
}

std::map<std::string, MotionSettings, std::less<>> MotionOf(const Preferences& preferences) {
    std::map<std::string, MotionSettings, std::less<>> cameras;
    for (const auto& [name, camera] : preferences.cameras) {
        MotionSettings& motion = cameras[name];
        motion.on = camera.motion || camera.record == RecordMode::OnMotion;
        motion.sensitivity = camera.sensitivity;
        if (!camera.mask.IsEmpty())
            motion.mask = [mask = camera.mask](int column, int row, int columns, int rows) {
                return mask.Masks(column * CellMask::kColumns / columns, row * CellMask::kRows / rows);
            };
    }
    return cameras;
}

void TellMotion(EventLog& events, const MotionNews& news) {
    Event event{.time = news.when,
                .kind = news.begins ? EventKind::MotionBegan : EventKind::MotionEnded,
                .camera = news.camera,
                .text = news.begins ? "Something moves." : "Nothing moves any more."};
    const auto percent = [](double part) { return std::to_string(std::lround(part * 100)); };
    if (news.begins) {
        event.details["x"] = percent(news.place.x);
        event.details["y"] = percent(news.place.y);
        event.details["area"] = percent(news.place.share);
    } else {
        event.details["seconds"] = std::to_string(news.lasted.count() / 1000);
    }
    events.Tell(std::move(event));
}

} // namespace

Services::Services(FeedTable& feeds, const Places& places)
    : m_feeds(feeds), m_events(places.recordings + "/events"),
      m_preferences(PreferenceStore::FileBeside(places.settings)),
      m_notices(m_events, m_preferences, places.data, AccessOf(feeds)),
      m_recording(places.recordings, m_events, m_preferences),
      m_motion([this](const MotionNews& news) { OnMotion(news); }) {
    Obey(*m_preferences.Now());
    m_preferences.Listen([this](const host::Preferences&, const host::Preferences& now) { Obey(now); });
    // The recorder first: it has the picture in which motion begins.
    m_feeds.AddTapMaker(m_recording.Recording());
    m_feeds.AddTapMaker(m_motion);
    Console::Get().SetRefusalListener([this](const Console::Refusal& refusal) { m_refusals.Note(refusal); });
    m_events.Tell({.kind = EventKind::ServerStarted, .text = "The server has started."});
}

Services::~Services() {
    Console::Get().SetRefusalListener(nullptr);
}

void Services::Obey(const host::Preferences& preferences) {
    m_motion.SetCameras(MotionOf(preferences));
}

void Services::OnMotion(const MotionNews& news) {
    if (news.begins)
        m_recording.Recording().MotionBegan(news.camera);
    else
        m_recording.Recording().MotionEnded(news.camera);
    TellMotion(m_events, news);
}

void Services::Tick(const LiveHosts& hosts) {
    m_refusals.Tick();
    m_connections.Look(m_feeds, hosts);
    m_motion.Tick();
    if (const auto now = Clock::now(); now >= m_nextFollow) {
        m_nextFollow = now + kFollowEvery;
        std::vector<std::string> cameras;
        for (const FeedPtr& feed : m_feeds.List())
            cameras.push_back(feed->Name());
        m_recording.Follow(cameras);
    }
}

} // namespace host
