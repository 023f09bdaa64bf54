// Brings a phone back whose connection was lost.
#pragma once

#include <functional>
#include <string>

#include "phone/connection.h"

namespace phone {

struct Reconnecting {
    bool enabled = false;
    // Told of each loss and of the wait behind it.
    std::function<void(const std::string& reason, Clock::duration wait)> lost{};
};

// Tells how long to wait before the next connection: not at all at first, then longer and longer as long as
// connections do not hold. Two phones of one camera, each of which throws the other out, would otherwise do
// so for ever.
class Comeback {
public:
    static constexpr std::chrono::seconds kHolds{10};
    static constexpr std::chrono::seconds kFirstWait{1};
    static constexpr std::chrono::seconds kLongestWait{60};

    // `lasted`: from the moment at which the server took the phone; 0 for a connection that did not come that
    // far.
    Clock::duration WaitAfter(Clock::duration lasted);

private:
    unsigned m_short = 0; // connections in a row that did not hold
};

// Runs conversations until one ends otherwise than by a loss, and notes how. One whose phone the server never
// took is the last: what is wrong may be the address. A conversation notes in `report.taken` that the server
// took it. `stop` as for Connection.
void Converse(Report& report, const Reconnecting& again, int stop, const std::function<End()>& conversation);

} // namespace phone
