// Tells the event log of wrong passwords.
#pragma once

#include <cstdint>
#include <map>
#include <mutex>
#include <string>

#include "host/base/wait.h"
#include "host/events/event_log.h"
#include "host/log/console.h"

namespace host {

// The first wrong password of an address is an event at once, and those that follow within a minute are one
// together, so that somebody who guesses passwords does not fill the log with it. Thread-safe.
class RefusalEvents {
public:
    static constexpr std::chrono::minutes kInterval{1};
    // More addresses at a time than that count as one.
    static constexpr std::size_t kMostAddresses = 64;

    explicit RefusalEvents(EventLog& log) : m_log(log) {}

    void Note(const Console::Refusal& refusal, Clock::time_point now = Clock::now());
    // Tells the counts that are due: to be called a few times a second.
    void Tick(Clock::time_point now = Clock::now());

private:
    struct Tally {
        Clock::time_point told;
        std::uint64_t more = 0; // since then
        Event newest;           // of them
    };

    EventLog& m_log;
    std::mutex m_mutex;
    std::map<std::string, Tally, std::less<>> m_tallies; // under m_mutex, by what tells addresses apart
};

} // namespace host
