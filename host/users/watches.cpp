#include "host/users/watches.h"

#include <iterator>
#include <map>
#include <utility>

namespace host {

Watches::Held Watches::Hold(Sessions::Owner visitor, MayGoOn mayGoOn, std::function<void()> end) {
    const std::lock_guard guard(m_state->mutex);
    m_state->watches.push_back({std::move(visitor), std::move(mayGoOn), std::move(end)});
    return {static_cast<const void*>(this),
            [state = m_state, own = std::prev(m_state->watches.end())](const void*) {
                const std::lock_guard ending(state->mutex);
                state->watches.erase(own);
            }};
}

void Watches::Sweep() {
    std::map<std::pair<std::string, bool>, Rights> known; // many connections have one visitor
    const std::lock_guard guard(m_state->mutex);
    for (Watch& watch : m_state->watches) {
        if (!watch.end)
            continue;
        const auto [rights, fresh] = known.try_emplace({watch.visitor.login, watch.visitor.camera});
        if (fresh)
            rights->second = m_rightsOf(watch.visitor);
        if (!watch.mayGoOn(rights->second))
            std::exchange(watch.end, nullptr)();
    }
}

} // namespace host
