// Takes what happens from whoever notices it, keeps it, and wakes those who want to know.
#pragma once

#include <condition_variable>
#include <cstdint>
#include <deque>
#include <mutex>
#include <string>
#include <thread>
#include <vector>

#include "host/base/wait.h"
#include "host/events/event.h"
#include "host/events/journal.h"

namespace host {

// The newest events stand in memory, all of the last days in the journal. Numbers go on over starts of the
// host. Thread-safe.
class EventLog {
public:
    // So many stand in memory, and may wait for the disk.
    static constexpr std::size_t kNewest = 2000;
    // Longer texts are cut: names that somebody signs in with come from anybody.
    static constexpr std::size_t kMostText = 300; // bytes
    static constexpr std::size_t kMostDetails = 16;

    // Reads the newest events of the folder and makes it with the first event that is written. Empty: nothing
    // is kept.
    explicit EventLog(std::string folder);
    EventLog(const EventLog&) = delete;
    EventLog& operator=(const EventLog&) = delete;
    ~EventLog(); // what still can be written is

    // Gives the event its number, and the present moment where it has none. Waits for nothing but a moment's
    // lock, so it may be called under any lock, on a phone's thread as well.
    void Tell(Event event) noexcept;

    // Those that the filter takes, newest first, `most` at the most. May read files.
    [[nodiscard]] std::vector<EventPtr> Find(const EventFilter& filter, std::size_t most) const;
    // Those with numbers above that one, oldest first, `most` at the most: what is new to somebody who has
    // seen that one. Reads files only for what is no longer in memory.
    [[nodiscard]] std::vector<EventPtr> After(std::uint64_t number, std::size_t most) const;
    [[nodiscard]] std::uint64_t LastNumber() const;
    // The number up to which the journal has them: a crash loses none of those.
    [[nodiscard]] std::uint64_t WrittenNumber() const;

    // Events of the days before this one go, soon. None goes before the first call.
    void KeepFrom(std::chrono::sys_days oldest);

    // EventWatch calls these; the wake-up is signalled for each event.
    void AddWatcher(Wakeup& wakeup);
    void RemoveWatcher(Wakeup& wakeup) noexcept;

private:
    void Write();
    [[nodiscard]] std::vector<EventPtr> Unwritten(std::uint64_t* lost) const; // with m_mutex held
    void SayWritten(EventJournal::Written written);

    EventJournal m_journal;
    mutable std::mutex m_mutex; // the members below
    std::condition_variable m_news;
    std::deque<EventPtr> m_newest; // their numbers follow each other
    std::uint64_t m_last = 0;      // the number of the newest one
    std::uint64_t m_written = 0;   // the number up to which the journal has them
    std::chrono::sys_days m_keptFrom = std::chrono::sys_days::min();
    bool m_ends = false;
    std::vector<Wakeup*> m_watchers;
    // The writer's.
    EventJournal::Written m_said = EventJournal::Written::All;
    std::chrono::sys_days m_sweptTo = std::chrono::sys_days::min();
    std::thread m_writer; // last: it uses all of the above
};

// Signals a wake-up for each event, for as long as it lives.
class EventWatch {
public:
    EventWatch(EventLog& log, Wakeup& wakeup) : m_log(log), m_wakeup(wakeup) { m_log.AddWatcher(m_wakeup); }
    EventWatch(const EventWatch&) = delete;
    EventWatch& operator=(const EventWatch&) = delete;
    ~EventWatch() { m_log.RemoveWatcher(m_wakeup); }

private:
    EventLog& m_log;
    Wakeup& m_wakeup;
};

} // namespace host
