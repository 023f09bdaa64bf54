#include "host/users/check_queue.h"

#include <algorithm>

namespace host {
namespace {

// How often somebody who waits looks for the stop signal.
constexpr std::chrono::milliseconds kLookForStop{50};

} // namespace

std::optional<CheckQueue::Place> CheckQueue::Enter(Rank rank, const std::string& address,
                                                   const Wakeup& stop) {
    std::unique_lock lock(m_mutex);
    if (m_working < kAtATime) { // then nobody waits
        ++m_working;
        return std::optional<Place>(std::in_place, *this);
    }
    Waiter self{rank, address};
    if (m_waiting.size() >= kMostWaiting && !MakeRoom(self))
        return std::nullopt;
    m_waiting.push_back(&self);
    while (self.state == Waiter::State::Waiting && !stop.IsSet())
        m_changed.wait_for(lock, kLookForStop);
    if (self.state == Waiter::State::Called)
        return std::optional<Place>(std::in_place, *this);
    std::erase(m_waiting, &self);
    return std::nullopt;
}

void CheckQueue::Leave() {
    const std::lock_guard guard(m_mutex);
    const auto next = std::ranges::min_element(m_waiting, {}, &Waiter::rank);
    if (next == m_waiting.end()) {
        --m_working;
        return;
    }
    (*next)->state = Waiter::State::Called;
    m_waiting.erase(next);
    m_changed.notify_all();
}

bool CheckQueue::MakeRoom(const Waiter& newcomer) {
    // Of equals the one who came last.
    const auto last = std::ranges::max_element(m_waiting.rbegin(), m_waiting.rend(), {},
                                               [this](const Waiter* waiter) { return BurdenOf(*waiter); });
    auto [rank, count] = BurdenOf(newcomer);
    if (BurdenOf(**last) <= std::pair(rank, count + 1))
        return false;
    (*last)->state = Waiter::State::TurnedAway;
    m_waiting.erase(std::next(last).base());
    m_changed.notify_all();
    return true;
}

std::pair<CheckQueue::Rank, std::ptrdiff_t> CheckQueue::BurdenOf(const Waiter& waiter) const {
    return {waiter.rank, std::ranges::count_if(m_waiting, [&](const Waiter* other) {
                return other->address == waiter.address;
            })};
}

} // namespace host
