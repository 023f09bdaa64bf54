#include "host/events/refusal_events.h"

#include <utility>

namespace host {

void RefusalEvents::Note(const Console::Refusal& refusal, Clock::time_point now) {
    if (refusal.reason != kWrongPassword)
        return;
    Event event{.kind = EventKind::SignInRefused,
                .camera = std::string(refusal.camera),
                .who = std::string(refusal.login),
                .text = "A wrong password came from " + std::string(refusal.address) + '.'};
    event.details["address"] = refusal.address;
    const std::lock_guard guard(m_mutex);
    const std::string_view key =
        m_tallies.size() < kMostAddresses || m_tallies.contains(refusal.whom) ? refusal.whom : "";
    if (const auto known = m_tallies.find(key); known != m_tallies.end()) {
        ++known->second.more;
        known->second.newest = std::move(event);
        return;
    }
    m_log.Tell(event);
    m_tallies.emplace(key, Tally{now, 0, {}});
}

void RefusalEvents::Tick(Clock::time_point now) {
    const std::lock_guard guard(m_mutex);
    for (auto at = m_tallies.begin(); at != m_tallies.end();) {
        Tally& tally = at->second;
        if (now - tally.told < kInterval) {
            ++at;
        } else if (tally.more == 0) {
            at = m_tallies.erase(at);
        } else {
            Event event = std::exchange(tally.newest, {});
            const std::string count = std::to_string(std::exchange(tally.more, 0));
            if (count != "1") {
                event.text = count + " more wrong passwords came" +
                             (at->first.empty() ? ", the last of them" : "") + " from " +
                             event.details["address"] + '.';
                event.details["count"] = count;
            }
            tally.told = now;
            m_log.Tell(std::move(event));
            ++at;
        }
    }
}

} // namespace host
