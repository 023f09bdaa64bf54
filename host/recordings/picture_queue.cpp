#include "host/recordings/picture_queue.h"

#include <new>
#include <utility>

namespace host {

bool PictureQueue::Push(const RecorderChannelPtr& channel, const kit::PicturePtr& picture,
                        std::uint64_t connection) noexcept {
    const std::size_t bytes = picture->Block().size();
    bool wake = false;
    try {
        const std::lock_guard guard(m_mutex);
        if (m_closed || m_items.size() >= m_limits.waitingPictures ||
            m_bytes + bytes > m_limits.waitingBytes ||
            (channel->waitingBytes > 0 && channel->waitingBytes + bytes > m_limits.waitingBytes / 4))
            return false;
        m_items.push_back({.kind = RecorderItem::Kind::Picture,
                           .channel = channel,
                           .picture = picture,
                           .connection = connection,
                           .file = {}});
        m_bytes += bytes;
        channel->waitingBytes += bytes;
        wake = std::exchange(m_sleeps, false) || FillsUp();
    } catch (const std::bad_alloc&) {
        return false;
    }
    if (wake)
        m_wake.notify_one();
    return true;
}

void PictureQueue::Tell(RecorderItem item) {
    {
        const std::lock_guard guard(m_mutex);
        m_items.push_back(std::move(item));
        m_sleeps = false;
    }
    m_wake.notify_one();
}

bool PictureQueue::Take(std::optional<Clock::time_point> until, std::deque<RecorderItem>& items) {
    std::unique_lock lock(m_mutex);
    const auto asked = [this] { return m_closed || m_asked > m_taken || FillsUp(); };
    if (until) {
        m_wake.wait_until(lock, *until, asked);
    } else {
        m_sleeps = m_items.empty();
        m_wake.wait(lock, [&] { return !m_sleeps || asked(); });
    }
    m_sleeps = false;
    items = std::exchange(m_items, {});
    for (const RecorderItem& item : items) {
        if (item.picture)
            item.channel->waitingBytes = 0;
    }
    m_bytes = 0;
    m_taken = m_asked;
    return !m_closed;
}

void PictureQueue::Done() {
    {
        const std::lock_guard guard(m_mutex);
        m_done = m_taken;
    }
    m_idle.notify_all();
}

void PictureQueue::Close() {
    {
        const std::lock_guard guard(m_mutex);
        m_closed = true;
    }
    m_wake.notify_all();
}

void PictureQueue::Settle() {
    std::unique_lock lock(m_mutex);
    const std::uint64_t wanted = ++m_asked;
    m_wake.notify_all();
    m_idle.wait(lock, [&] { return m_done >= wanted; });
}

bool PictureQueue::FillsUp() const noexcept {
    return m_bytes > m_limits.waitingBytes / 8 || m_items.size() > m_limits.waitingPictures / 2;
}

} // namespace host
