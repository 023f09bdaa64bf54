#include "host/site/live/motion_jpeg.h"

#include <algorithm>
#include <array>
#include <exception>
#include <iterator>
#include <list>
#include <map>
#include <optional>
#include <string>
#include <utility>

#include <poll.h>
#include <sys/epoll.h>
#include <sys/ioctl.h>
#include <sys/socket.h>

#include <linux/sockios.h>

#include "host/http/answer.h"
#include "host/http/wire.h"
#include "host/log/console.h"
#include "host/site/live/pages.h"

namespace host {
namespace {

using JpegPtr = std::shared_ptr<const std::string>;

// How often the send queue is looked at while the last picture is still in it; nothing tells when it is
// empty.
constexpr std::chrono::milliseconds kQueuePoll{5};
// A look takes a third of the time that sending does. A watcher whose queue was empty at the first look this
// often running is taken to be as quick until it is looked at again, this much later: what it can fall behind
// meanwhile is what comes in that time.
constexpr int kQuickLooks = 8;
constexpr std::chrono::milliseconds kTrusted{500};

int QueuedBytes(int fd) {
    int queued = 0;
    return ::ioctl(fd, SIOCOUTQ, &queued) == 0 ? queued : 0;
}

} // namespace

// The groups of one loop, by camera.
class LiveSenders::Board {
public:
    Board(EventLoop& loop, const Limits& limits, Counters& counters)
        : m_loop(loop), m_limits(limits), m_counters(counters) {}
    ~Board();

    void Add(WatcherPtr watcher, const FeedPtr& feed);
    void End(WatcherPtr watcher);
    // Calls a group, which may be at its end behind that.
    void Visit(const CameraFeed* key, const std::function<void(Group&)>& call);

private:
    EventLoop& m_loop;
    const Limits& m_limits;
    Counters& m_counters;
    std::map<const CameraFeed*, Group> m_groups;
};

// What all watchers of a camera on one loop share.
class LiveSenders::Group {
public:
    using Watchers = std::list<WatcherPtr>;

    Group(Board& board, EventLoop& loop, FeedPtr feed, const Limits& limits, Counters& counters);

    void Add(WatcherPtr watcher);
    [[nodiscard]] bool IsEmpty() const noexcept { return m_watchers.empty(); }
    // Those that have ended since.
    [[nodiscard]] Watchers TakeEnded() noexcept { return std::exchange(m_ended, {}); }

    // What a watcher needs of it.
    const Limits& limits;
    Counters& counters;
    std::uint64_t sent = 0; // pictures that the counters are not told of yet
    [[nodiscard]] JpegPtr Placeholder(const kit::Picture* last);

private:
    void OnPicture();
    void OnTime();
    void OnEvents(Watcher& watcher, std::uint32_t events);
    void LookAll(Clock::time_point dueBy);
    bool Look(Watcher& watcher, const kit::PicturePtr& newest, Clock::time_point now);
    // Loops that count together wait for each other as well, so once for all that a look sent.
    void Count() { counters.sent += std::exchange(sent, 0); }
    void End(Watcher& watcher);
    void EndAll() { m_ended.splice(m_ended.end(), m_watchers); }
    void Await(Clock::time_point due);
    // Calls an operation of this group, if it is there then.
    template <class Call>
    [[nodiscard]] auto Later(Call call) {
        return [&board = m_board, key = m_feed.Get(), call](auto... arguments) {
            board.Visit(key, [&](Group& group) { call(group, arguments...); });
        };
    }

    Board& m_board;
    EventLoop& m_loop;
    const FeedPtr m_feed;
    Wakeup m_wakeup;
    const FeedWatch m_watch;
    Watchers m_watchers;
    Watchers m_ended;
    EventLoop::Timer m_timer;
    Clock::time_point m_timerAt = Clock::time_point::max();
    kit::PlaneLayout m_placeholderLayout;
    JpegPtr m_placeholder;
    const EventLoop::AtStop m_stop;
    const EventLoop::Interest m_pictures; // last: it calls what is above
};

// One connection.
class LiveSenders::Watcher {
public:
    Watcher(EventLoop& loop, Stream stream, std::shared_ptr<const void> held, Counters& counters)
        : m_held(std::move(held)), m_load(loop), m_watching(counters, SessionKind::Live),
          m_stream(std::move(stream)), m_lastPicture(Clock::now()), m_sentAt(m_lastPicture) {}

    void Begin(EventLoop& loop, std::function<void(std::uint32_t)> happened) {
        m_interest.emplace(loop, m_stream.Fd(), EPOLLRDHUP, std::move(happened));
    }
    // What it held, for whoever ends it to let go of.
    [[nodiscard]] std::shared_ptr<const void> TakeHeld() noexcept { return std::move(m_held); }

    // Sends what is due and can be sent now. False at the end.
    bool Look(Group& group, const kit::PicturePtr& newest, Clock::time_point now) {
        for (;;) {
            if (m_bytes != nullptr && !Write(group, now))
                return false;
            if (m_bytes != nullptr) {
                if (!m_jpeg) // chosen just now
                    m_jpeg = JpegPtr(newest, m_bytes);
                return true;
            }
            m_jpeg = nullptr;
            const Turn turn = Choose(group, newest, now);
            if (turn != Turn::Sends)
                return turn == Turn::Waits;
        }
    }
    // Asks for what Look will read.
    void Prefetch() const noexcept {
        constexpr std::size_t kLine = 64;
        const auto* const first = reinterpret_cast<const char*>(this);
        for (std::size_t at = 0; at < sizeof *this; at += kLine)
            __builtin_prefetch(first + at);
    }
    // When to look at it if nothing else happens.
    [[nodiscard]] Clock::time_point Due() const noexcept { return m_due; }

private:
    enum class Turn { Sends, Waits, Ends };

    Turn Choose(Group& group, const kit::PicturePtr& newest, Clock::time_point now) {
        const Limits& limits = group.limits;
        if (newest)
            m_lastPicture = std::max(m_lastPicture, newest->Arrival());
        const bool fresh = newest && now - newest->Arrival() < limits.staleAfter;
        if (fresh && newest->Sequence() != m_sequence) {
            if (HasSentAll(now))
                return Take(*newest, group, now);
            m_due = now + kQueuePoll;
            return now - m_sentAt > limits.writeStall ? Turn::Ends : Turn::Waits;
        }
        // Nothing was shown yet and the newest picture is an old one: there is nothing to wait for.
        const auto silentSince =
            newest && m_sequence == 0 && !m_showsPlaceholder ? newest->Arrival() : m_lastPicture;
        const auto placeholderAt = silentSince + limits.staleAfter;
        if (!m_showsPlaceholder && !fresh && now >= placeholderAt) {
            m_showsPlaceholder = true;
            m_jpeg = group.Placeholder(newest.get());
            return Send(*m_jpeg, now);
        }
        m_due = m_showsPlaceholder ? Clock::time_point::max() : placeholderAt;
        return Turn::Waits;
    }

    // Whether the last picture has reached its reader, as far as is known.
    bool HasSentAll(Clock::time_point now) {
        if (m_quickLooks >= kQuickLooks && now - m_lookedAt < kTrusted)
            return true;
        m_lookedAt = now;
        const bool isEmpty = QueuedBytes(m_stream.Fd()) == 0;
        m_quickLooks = isEmpty ? std::min(m_quickLooks + 1, kQuickLooks) : 0;
        return isEmpty;
    }

    Turn Take(const kit::Picture& newest, Group& group, Clock::time_point now) {
        if (m_sequence != 0 && newest.Sequence() > m_sequence + 1)
            group.counters.skipped += newest.Sequence() - m_sequence - 1;
        m_sequence = newest.Sequence();
        if (newest.Jpeg().empty())
            return Turn::Sends; // as if it had been
        m_showsPlaceholder = false;
        ++group.sent;
        return Send(newest.Jpeg(), now);
    }

    Turn Send(const std::string& bytes, Clock::time_point now) {
        m_bytes = &bytes;
        m_written = 0;
        m_sentAt = m_movedAt = now;
        return Turn::Sends;
    }

    // False when the connection is at its end.
    bool Write(const Group& group, Clock::time_point now) {
        const std::size_t all = m_bytes->size() + kNextPart.size();
        while (m_written < all) {
            const std::size_t ofPicture = std::min(m_written, m_bytes->size());
            const std::array<std::string_view, 2> parts{std::string_view(*m_bytes).substr(ofPicture),
                                                        kNextPart.substr(m_written - ofPicture)};
            const ssize_t sent = m_stream.Write(parts);
            if (sent > 0) {
                m_written += static_cast<std::size_t>(sent);
                m_movedAt = now;
                continue;
            }
            m_due = m_movedAt + group.limits.writeStall;
            if (sent != Stream::kAgain || now >= m_due)
                return false;
            m_interest->Change(EPOLLRDHUP | (m_stream.Awaits() == POLLIN ? EPOLLIN : EPOLLOUT));
            return true;
        }
        m_bytes = nullptr;
        m_interest->Change(EPOLLRDHUP);
        return true;
    }

    std::shared_ptr<const void> m_held;
    const EventLoop::Load m_load;
    const WatchGuard m_watching;
    Stream m_stream;
    std::optional<EventLoop::Interest> m_interest;
    // What is under way, and how much of it and of what follows it has gone. A share in it is taken only
    // where it does not go at once: loops that count shares of one picture wait for each other.
    const std::string* m_bytes = nullptr;
    JpegPtr m_jpeg;
    std::size_t m_written = 0;
    std::uint64_t m_sequence = 0;    // of the last picture sent
    Clock::time_point m_lastPicture; // when it was last known that the camera lives
    Clock::time_point m_sentAt;
    Clock::time_point m_movedAt;
    Clock::time_point m_lookedAt; // at the send queue
    int m_quickLooks = 0;         // that found it empty, running
    Clock::time_point m_due;
    bool m_showsPlaceholder = false;
};

LiveSenders::Group::Group(Board& board, EventLoop& loop, FeedPtr feed, const Limits& ofHost,
                          Counters& ofServer)
    : limits(ofHost), counters(ofServer), m_board(board), m_loop(loop), m_feed(std::move(feed)),
      m_watch(m_feed, m_wakeup), m_timer(loop), m_stop(loop, Later([](Group& group) { group.EndAll(); })),
      m_pictures(loop, m_wakeup.Fd(), EPOLLIN,
                 Later([](Group& group, std::uint32_t) { group.OnPicture(); })) {}

void LiveSenders::Group::Add(WatcherPtr watcher) {
    Watcher& added = *m_watchers.emplace_back(std::move(watcher));
    try {
        added.Begin(m_loop,
                    Later([&added](Group& group, std::uint32_t events) { group.OnEvents(added, events); }));
    } catch (const std::exception&) {
        End(added); // no memory in the system
        return;
    }
    (void)Look(added, m_feed->Newest(), Clock::now());
    Count();
}

JpegPtr LiveSenders::Group::Placeholder(const kit::Picture* last) {
    kit::PlaneLayout layout{.width = 320, .height = 240};
    if (last != nullptr)
        layout = last->Layout();
    if (!m_placeholder || layout != m_placeholderLayout) {
        m_placeholder =
            std::make_shared<const std::string>(kit::DrawPlaceholder(layout.width, layout.height));
        m_placeholderLayout = layout;
    }
    return m_placeholder;
}

void LiveSenders::Group::OnPicture() {
    m_wakeup.Clear();
    LookAll(Clock::time_point::max());
}

void LiveSenders::Group::OnTime() {
    m_timerAt = Clock::time_point::max();
    LookAll(Clock::now());
}

void LiveSenders::Group::OnEvents(Watcher& watcher, std::uint32_t events) {
    if ((events & (EPOLLRDHUP | EPOLLHUP | EPOLLERR)) != 0)
        End(watcher);
    else
        (void)Look(watcher, m_feed->Newest(), Clock::now());
    Count();
}

// Those that are due by then, or all.
void LiveSenders::Group::LookAll(Clock::time_point dueBy) {
    const auto now = Clock::now();
    const kit::PicturePtr newest = m_feed->Newest();
    auto next = Clock::time_point::max();
    for (auto at = m_watchers.begin(); at != m_watchers.end();) {
        Watcher& watcher = **at++; // before it ends
        // To send pushes the next ones out of the caches. They come back meanwhile, and so does the place in
        // the list behind them.
        if (at != m_watchers.end()) {
            (*at)->Prefetch();
            __builtin_prefetch(&*std::next(at));
        }
        if (watcher.Due() > dueBy || Look(watcher, newest, now))
            next = std::min(next, watcher.Due());
    }
    Count();
    Await(next);
}

bool LiveSenders::Group::Look(Watcher& watcher, const kit::PicturePtr& newest, Clock::time_point now) {
    bool goesOn = false;
    try {
        goesOn = watcher.Look(*this, newest, now);
    } catch (const std::exception& error) {
        Console::Get().Log("error", std::string("a watcher's connection ended: ") + error.what());
    }
    goesOn ? Await(watcher.Due()) : End(watcher);
    return goesOn;
}

void LiveSenders::Group::End(Watcher& watcher) {
    const auto at = std::ranges::find(m_watchers, &watcher, &WatcherPtr::get);
    m_ended.splice(m_ended.end(), m_watchers, at);
}

// A timer that comes too early finds nothing to do, and costs less than one that is set anew for each
// picture.
void LiveSenders::Group::Await(Clock::time_point due) {
    if (due >= m_timerAt)
        return;
    m_timerAt = due;
    m_timer.At(due, Later([](Group& group) { group.OnTime(); }));
}

LiveSenders::Board::~Board() = default;

void LiveSenders::Board::Add(WatcherPtr watcher, const FeedPtr& feed) {
    m_groups.try_emplace(feed.Get(), *this, m_loop, feed, m_limits, m_counters);
    Visit(feed.Get(), [&](Group& group) { group.Add(std::move(watcher)); });
}

void LiveSenders::Board::End(WatcherPtr watcher) {
    std::shared_ptr<const void> held = watcher->TakeHeld();
    watcher.reset();
    // It may be locked by somebody who writes to a disk.
    EventLoop::Elsewhere([held = std::move(held)]() mutable { held.reset(); });
}

// The server forgets a connection with what it held; nothing of the group is left by then.
void LiveSenders::Board::Visit(const CameraFeed* key, const std::function<void(Group&)>& call) {
    const auto at = m_groups.find(key);
    if (at == m_groups.end())
        return;
    call(at->second);
    Group::Watchers ended = at->second.TakeEnded();
    if (at->second.IsEmpty())
        m_groups.erase(at);
    while (!ended.empty()) {
        WatcherPtr watcher = std::move(ended.front());
        ended.pop_front();
        End(std::move(watcher));
    }
}

LiveSenders::LiveSenders(EventLoops& loops, const Limits& limits, Counters& counters)
    : m_loops(loops), m_limits(limits), m_counters(counters), m_boards(loops.Count()) {}

LiveSenders::~LiveSenders() = default;

void LiveSenders::Add(Stream stream, FeedPtr feed, std::shared_ptr<const void> held) {
    EventLoop& loop = m_loops.Choose();
    auto watcher = std::make_shared<Watcher>(loop, std::move(stream), std::move(held), m_counters);
    loop.Post([this, &loop, watcher = std::move(watcher), feed = std::move(feed)]() mutable {
        auto& board = m_boards[loop.Number()];
        if (!board)
            board = std::make_unique<Board>(loop, m_limits, m_counters);
        loop.IsStopping() ? board->End(std::move(watcher)) : board->Add(std::move(watcher), feed);
    });
}

void LivePages::SendMotionJpeg(Stream stream, const FeedPtr& feed, bool headOnly,
                               std::shared_ptr<const void> held) const {
    const int buffer = kWatcherSendBuffer;
    ::setsockopt(stream.Fd(), SOL_SOCKET, SO_SNDBUF, &buffer, sizeof buffer);
    Answer head;
    head.type = LiveSenders::kType;
    head.headers["Cache-Control"] = "no-store";
    std::string bytes = Serialize(head, {.headOnly = headOnly, .openEnded = true});
    if (!headOnly)
        bytes += LiveSenders::kFirstPart;
    if (SendAll(stream, bytes, stop, limits.writeStall) == SendResult::Sent && !headOnly)
        senders.Add(std::move(stream), feed, std::move(held));
}

} // namespace host
