#include "host/sources/camera_source.h"

namespace host {

PicturePtr CameraSource::Now() {
    const FeedPtr feed = m_feeds->Find(m_name);
    if (!feed)
        return nullptr;
    PicturePtr newest = feed->Newest();
    if (newest && Clock::now() - newest->Arrival() < m_staleAfter)
        return newest;
    return Placeholder(newest);
}

PicturePtr CameraSource::Placeholder(const PicturePtr& newest) {
    const PlaneLayout size = newest ? newest->Layout() : PlaneLayout{320, 240};
    const std::lock_guard guard(m_mutex);
    if (!m_placeholder || m_placeholder->Layout().width != size.width ||
        m_placeholder->Layout().height != size.height)
        m_placeholder = MakePlaceholder(size.width, size.height);
    return m_placeholder;
}

} // namespace host
