#include <poll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <linux/sockios.h>

#include "host/http/answer.h"
#include "host/http/wire.h"
#include "host/site/live/pages.h"

namespace host {
namespace {

constexpr std::string_view kBoundary = "morrowstream-picture";
// How often the send queue is looked at while the last picture is still in it; nothing tells when it is
// empty.
constexpr std::chrono::milliseconds kQueuePoll{5};

int QueuedBytes(int fd) {
    int queued = 0;
    return ::ioctl(fd, SIOCOUTQ, &queued) == 0 ? queued : 0;
}

class LiveStream {
public:
    LiveStream(Stream& stream, const FeedPtr& feed, const LivePages& pages)
        : m_stream(stream), m_fd(stream.Fd()), m_feed(feed), m_pages(pages), m_watch(feed, m_wakeup) {}

    void Run() {
        m_lastPicture = m_sentAt = Clock::now();
        if (!Send("--" + std::string(kBoundary) + kPartHead))
            return;
        while (Step()) {
        }
    }

private:
    // A browser shows a part when the next one begins. So the head of the next part follows each picture in
    // the same write, and that is also why no part can tell its length.
    static constexpr const char* kPartHead = "\r\nContent-Type: image/jpeg\r\n\r\n";

    bool Send(std::string_view bytes) {
        return SendAll(m_stream, bytes, m_pages.stop, m_pages.limits.writeStall) == SendResult::Sent;
    }

    bool SendPart(std::string_view jpeg) {
        std::string part;
        part.reserve(jpeg.size() + 96);
        part.append(jpeg).append("\r\n--").append(kBoundary).append(kPartHead);
        m_sentAt = Clock::now();
        return Send(part);
    }

    // One picture sent, or one wait. False at the end.
    bool Step() {
        m_wakeup.Clear();
        const auto now = Clock::now();
        const kit::PicturePtr picture = m_feed->Newest();
        if (picture)
            m_lastPicture = std::max(m_lastPicture, picture->Arrival());
        const bool fresh = picture && now - picture->Arrival() < m_pages.limits.staleAfter;
        if (fresh && picture->Sequence() != m_sequence)
            return QueuedBytes(m_fd) == 0 ? SendPicture(*picture) : WaitForQueue(now);
        // Nothing was shown yet and the newest picture is an old one: there is nothing to wait for.
        const auto silentSince =
            picture && m_sequence == 0 && !m_placeholder ? picture->Arrival() : m_lastPicture;
        const auto placeholderAt = silentSince + m_pages.limits.staleAfter;
        if (!m_placeholder && !fresh && now >= placeholderAt)
            return SendPlaceholder(picture.get());
        return Wait(m_placeholder ? now + std::chrono::minutes(1) : std::max(placeholderAt, now));
    }

    bool SendPicture(const kit::Picture& picture) {
        const std::string& jpeg = picture.Jpeg();
        if (m_sequence != 0 && picture.Sequence() > m_sequence + 1)
            m_pages.counters.skipped += picture.Sequence() - m_sequence - 1;
        m_sequence = picture.Sequence();
        if (jpeg.empty())
            return true;
        m_placeholder = false;
        ++m_pages.counters.sent;
        return SendPart(jpeg);
    }

    bool SendPlaceholder(const kit::Picture* last) {
        m_placeholder = true;
        const int width = last != nullptr ? last->Layout().width : 320;
        const int height = last != nullptr ? last->Layout().height : 240;
        return SendPart(kit::DrawPlaceholder(width, height));
    }

    bool Wait(Clock::time_point until) {
        const Waited waited = WaitFor(
            {.socket = m_fd, .socketEvents = POLLRDHUP, .wakeup = &m_wakeup, .stop = &m_pages.stop}, until);
        return waited == Waited::Woken || waited == Waited::Timeout;
    }

    bool WaitForQueue(Clock::time_point now) {
        if (now - m_sentAt > m_pages.limits.writeStall)
            return false;
        const Waited waited =
            WaitFor({.socket = m_fd, .socketEvents = POLLRDHUP, .stop = &m_pages.stop}, now + kQueuePoll);
        return waited == Waited::Timeout;
    }

    Stream& m_stream;
    const int m_fd;
    const FeedPtr m_feed;
    const LivePages& m_pages;
    Wakeup m_wakeup;
    FeedWatch m_watch;
    std::uint64_t m_sequence = 0;    // of the last picture sent
    Clock::time_point m_lastPicture; // when it was last known that the camera lives
    Clock::time_point m_sentAt;
    bool m_placeholder = false; // the watcher sees the placeholder
};

} // namespace

void LivePages::SendMotionJpeg(Stream& stream, const FeedPtr& feed, bool headOnly) const {
    const int buffer = kWatcherSendBuffer;
    ::setsockopt(stream.Fd(), SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    Answer head;
    head.type = "multipart/x-mixed-replace; boundary=" + std::string(kBoundary);
    head.headers["Cache-Control"] = "no-store";
    const std::string bytes = Serialize(head, {.headOnly = headOnly, .openEnded = true});
    if (SendAll(stream, bytes, stop, limits.writeStall) != SendResult::Sent || headOnly)
        return;
    const WatchGuard watching(counters, SessionKind::Live);
    LiveStream(stream, feed, *this).Run();
}

} // namespace host
