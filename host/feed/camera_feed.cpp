#include "host/feed/camera_feed.h"

#include <algorithm>

namespace host {

HRESULT CameraFeed::OnVideoFrame(IVideoFrame* frame) {
    std::uint8_t* block = nullptr;
    std::uint32_t size = 0;
    const HRESULT hr = frame != nullptr ? frame->GetFrameContent(&block, &size) : E_UNEXPECTED;
    FrameContent content(SUCCEEDED(hr) ? block : nullptr);
    PlaneLayout layout;
    const bool good = ReadLayout(content.get(), size, &layout);
    PicturePtr old; // freed outside the lock
    const std::lock_guard guard(m_mutex);
    if (!good) {
        ++m_failed;
        return S_OK;
    }
    ++m_frames;
    old = std::exchange(m_newest, std::make_shared<const Picture>(m_frames, std::move(content), layout));
    m_rate.Add(m_newest->Arrival());
    for (Wakeup* watcher : m_watchers)
        watcher->Signal();
    return S_OK;
}

PicturePtr CameraFeed::Newest() const {
    const std::lock_guard guard(m_mutex);
    return m_newest;
}

CameraFigures CameraFeed::Figures() const {
    const auto now = Clock::now();
    CameraFigures figures;
    figures.id = m_id;
    figures.name = m_name;
    figures.connected = m_connected.load();
    const std::lock_guard guard(m_mutex);
    figures.type = m_type;
    figures.frames = m_frames;
    figures.failed = m_failed;
    figures.fps = m_rate.PerSecond(now);
    if (m_newest) {
        figures.width = m_newest->Layout().width;
        figures.height = m_newest->Layout().height;
        figures.age = std::max(0.0, std::chrono::duration<double>(now - m_newest->Arrival()).count());
    }
    return figures;
}

void CameraFeed::SetType(std::string type) {
    const std::lock_guard guard(m_mutex);
    m_type = std::move(type);
}

void CameraFeed::AddWatcher(Wakeup& wakeup) {
    const std::lock_guard guard(m_mutex);
    m_watchers.push_back(&wakeup);
}

void CameraFeed::RemoveWatcher(Wakeup& wakeup) noexcept {
    const std::lock_guard guard(m_mutex);
    m_watchers.erase(std::ranges::find(m_watchers, &wakeup));
}

FeedWatch::FeedWatch(FeedPtr feed, Wakeup& wakeup) : m_feed(std::move(feed)), m_wakeup(&wakeup) {
    m_feed->AddWatcher(*m_wakeup);
}

FeedWatch::~FeedWatch() {
    if (m_feed) // not moved from
        m_feed->RemoveWatcher(*m_wakeup);
}

} // namespace host
