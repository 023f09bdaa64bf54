// A way to tell somebody else of events.
#pragma once

#include <cstdint>
#include <string>

#include "host/base/wait.h"
#include "host/preferences/preferences.h"

namespace host {

// What is told: an event, or a test.
struct Notice {
    std::uint64_t number = 0; // of the event; 0 for a test
    std::string kind;         // the event's word; "test"
    std::string camera;       // empty for what is of no one camera
    std::string json;         // of the event, as it stands in the journal
};

// What a thread of a line waits for and stops at.
struct NoticeSignals {
    Wakeup wakeup; // something is to be looked at: an event, a change, a test
    Wakeup stop;   // raised once, for good
};

struct NoticeOutcome {
    enum class Result {
        Taken,
        Refused, // this notice, for good: the next one may be taken
        Failed,  // may be tried again
    };
    Result result = Result::Failed;
    std::string text; // one line for people, in English; nothing secret in it
};

// Called by the thread of its line alone, for which it may wait: within its own deadlines, and until the stop
// signal.
class NoticeChannel {
public:
    virtual ~NoticeChannel() = default;

    // Whether there is anybody to be told, by what holds from now on.
    virtual bool SetUp(const Preferences& preferences) = 0;
    [[nodiscard]] virtual bool Wants(const std::string& kind) const = 0;
    virtual NoticeOutcome Send(const Notice& notice) = 0;
    // What is to be done meanwhile. Back at the moment, at the wake-up, or before.
    virtual void Rest(Clock::time_point until) = 0;
};

} // namespace host
