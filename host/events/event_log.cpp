#include "host/events/event_log.h"

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <exception>
#include <utility>

#include "host/log/console.h"

namespace host {
namespace {

// What could not be written is tried again.
constexpr std::chrono::seconds kRetryAfter{5};

// At the most so many bytes, without half a character at the end.
void CutText(std::string& text, std::size_t most) {
    if (text.size() <= most)
        return;
    std::size_t end = most;
    while (end > 0 && (static_cast<unsigned char>(text[end]) & 0xC0U) == 0x80U)
        --end;
    text.resize(end);
}

void CutEvent(Event& event) {
    for (std::string* text : {&event.camera, &event.who, &event.text})
        CutText(*text, EventLog::kMostText);
    while (event.details.size() > EventLog::kMostDetails)
        event.details.erase(std::prev(event.details.end()));
    for (auto& [name, value] : event.details)
        CutText(value, EventLog::kMostText);
}

} // namespace

EventLog::EventLog(std::string folder)
    : m_journal(std::move(folder)), m_last(m_journal.LastNumber()), m_written(m_last) {
    auto newest = m_journal.Newest({}, kNewest);
    // A file that somebody has mended may have gaps; behind one, memory begins.
    for (std::uint64_t number = m_last; const EventPtr& event : newest) {
        if (event->number != number--)
            break;
        m_newest.push_front(event);
    }
    m_writer = std::thread([this] { Write(); });
}

EventLog::~EventLog() {
    {
        const std::lock_guard guard(m_mutex);
        m_ends = true;
    }
    m_news.notify_all();
    m_writer.join();
}

void EventLog::Tell(Event event) noexcept {
    try {
        CutEvent(event);
        if (event.time == Event::Time{})
            event.time = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
        const auto told = std::make_shared<Event>(std::move(event));
        EventPtr oldest; // freed outside the lock
        {
            const std::lock_guard guard(m_mutex);
            told->number = m_last + 1;
            m_newest.push_back(told);
            ++m_last;
            if (m_newest.size() > kNewest) {
                oldest = std::move(m_newest.front());
                m_newest.pop_front();
            }
            for (Wakeup* watcher : m_watchers)
                watcher->Signal();
        }
        m_news.notify_all();
    } catch (const std::exception& error) {
        // Whoever tells of something has it done already.
        Console::Get().Log("error", std::string("an event is lost: ") + error.what());
    }
}

std::vector<EventPtr> EventLog::Find(const EventFilter& filter, std::size_t most) const {
    std::deque<EventPtr> newest;
    {
        const std::lock_guard guard(m_mutex);
        newest = m_newest;
    }
    std::vector<EventPtr> found;
    for (auto at = newest.rbegin(); at != newest.rend() && found.size() < most; ++at) {
        if (filter.Takes(**at))
            found.push_back(*at);
    }
    if (found.size() < most) {
        EventFilter older = filter;
        older.before = std::min(filter.before, newest.empty() ? UINT64_MAX : newest.front()->number);
        if (older.before > 1) {
            const auto more = m_journal.Newest(older, most - found.size());
            found.insert(found.end(), more.begin(), more.end());
        }
    }
    return found;
}

std::vector<EventPtr> EventLog::After(std::uint64_t number, std::size_t most) const {
    std::vector<EventPtr> found;
    std::uint64_t first = 0; // in memory
    {
        const std::lock_guard guard(m_mutex);
        if (number >= m_last)
            return found;
        first = m_newest.empty() ? m_last + 1 : m_newest.front()->number;
        if (number + 1 >= first) {
            const auto from = m_newest.begin() + static_cast<std::ptrdiff_t>(number + 1 - first);
            const auto count = std::min(most, static_cast<std::size_t>(m_newest.end() - from));
            found.assign(from, from + static_cast<std::ptrdiff_t>(count));
            return found;
        }
    }
    found = m_journal.After(number, most);
    if (found.size() < most) {
        // What the journal has no longer, or not yet, may stand in memory.
        const auto more =
            After(std::max(first - 1, found.empty() ? 0 : found.back()->number), most - found.size());
        found.insert(found.end(), more.begin(), more.end());
    }
    return found;
}

std::uint64_t EventLog::LastNumber() const {
    const std::lock_guard guard(m_mutex);
    return m_last;
}

std::uint64_t EventLog::WrittenNumber() const {
    const std::lock_guard guard(m_mutex);
    return m_written;
}

void EventLog::KeepFrom(std::chrono::sys_days oldest) {
    {
        const std::lock_guard guard(m_mutex);
        m_keptFrom = oldest;
        while (!m_newest.empty() && m_newest.front()->time < oldest && m_newest.front()->number <= m_written)
            m_newest.pop_front();
    }
    m_news.notify_all();
}

void EventLog::AddWatcher(Wakeup& wakeup) {
    const std::lock_guard guard(m_mutex);
    m_watchers.push_back(&wakeup);
}

void EventLog::RemoveWatcher(Wakeup& wakeup) noexcept {
    const std::lock_guard guard(m_mutex);
    m_watchers.erase(std::ranges::find(m_watchers, &wakeup));
}

std::vector<EventPtr> EventLog::Unwritten(std::uint64_t* lost) const {
    const std::uint64_t first = m_newest.empty() ? m_last + 1 : m_newest.front()->number;
    const std::uint64_t from = std::max(m_written + 1, first);
    *lost = from - (m_written + 1);
    return {m_newest.begin() + static_cast<std::ptrdiff_t>(from - first), m_newest.end()};
}

void EventLog::SayWritten(EventJournal::Written written) {
    const int reason = errno;
    // Once for each time that it begins.
    if (std::exchange(m_said, written) == written)
        return;
    if (written == EventJournal::Written::Failed)
        Console::Get().Log("error", std::string("events cannot be written to disk, which is tried again: ") +
                                        std::strerror(reason));
    else if (written == EventJournal::Written::DayFull)
        Console::Get().Log("error", "there are too many events today: those that come now are not kept");
}

void EventLog::Write() {
    for (;;) {
        std::vector<EventPtr> events;
        std::uint64_t lost = 0;
        std::chrono::sys_days keptFrom{};
        bool ends = false;
        {
            std::unique_lock lock(m_mutex);
            m_news.wait(lock, [this] { return m_ends || m_written < m_last || m_sweptTo < m_keptFrom; });
            events = Unwritten(&lost);
            keptFrom = m_keptFrom;
            ends = m_ends;
        }
        if (m_sweptTo < keptFrom) {
            m_journal.Sweep(keptFrom);
            m_sweptTo = keptFrom;
        }
        if (lost > 0)
            Console::Get().Log("error",
                               std::to_string(lost) + " events are lost: the disk took none for too long");
        std::size_t count = 0;
        const auto written = m_journal.Append(events, &count);
        if (!events.empty())
            SayWritten(written);
        std::unique_lock lock(m_mutex);
        m_written += lost + count;
        if (ends)
            return;
        if (written == EventJournal::Written::Failed)
            m_news.wait_for(lock, kRetryAfter, [this] { return m_ends; });
    }
}

} // namespace host
