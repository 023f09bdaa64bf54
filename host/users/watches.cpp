#include "host/users/watches.h"

#include <iterator>
#include <map>
#include <utility>

namespace host {

Watches::Held Watches::Hold(Sessions::Owner visitor, By by, MayGoOn mayGoOn, std::function<void()> end) {
    std::string digest = by == By::Password ? m_digestOf(visitor) : std::string();
    const std::lock_guard guard(m_state->mutex);
    m_state->watches.push_back({std::move(visitor), std::move(digest), std::move(mayGoOn), std::move(end)});
    return {static_cast<const void*>(this),
            [state = m_state, own = std::prev(m_state->watches.end())](const void*) {
                const std::lock_guard ending(state->mutex);
                state->watches.erase(own);
            }};
}

void Watches::Sweep() {
    struct Now {
        Rights rights;
        std::string digest;
    };
    std::map<std::pair<std::string, bool>, Now> known; // many connections have one visitor
    const std::lock_guard guard(m_state->mutex);
    for (Watch& watch : m_state->watches) {
        if (!watch.end)
            continue;
        const auto [visitor, fresh] = known.try_emplace({watch.visitor.login, watch.visitor.camera});
        Now& now = visitor->second;
        if (fresh)
            now = {m_rightsOf(watch.visitor), m_digestOf(watch.visitor)};
        if ((!watch.digest.empty() && watch.digest != now.digest) || !watch.mayGoOn(now.rights))
            std::exchange(watch.end, nullptr)();
    }
}

} // namespace host
