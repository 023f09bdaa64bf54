#include "host/users/throttle.h"

#include <algorithm>

namespace host {

std::chrono::milliseconds Throttle::DelayAfter(unsigned wrong) noexcept {
    if (wrong <= kFree)
        return std::chrono::milliseconds{0};
    const unsigned doublings = std::min(wrong - kFree - 1, 10U);
    return std::min(kFirstDelay * (1U << doublings), kLongestDelay);
}

std::optional<Clock::time_point> Throttle::Reserve(const std::string& address, Clock::time_point now) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_records.find(address);
    if (found == m_records.end() || found->second.wrong <= kFree)
        return now;
    Record& record = found->second;
    if (now - record.lastWrong > kForgetAfter) {
        m_records.erase(found);
        return now;
    }
    const auto turn = std::max(record.next, now);
    if (turn - now > m_maxWait)
        return std::nullopt;
    record.next = turn + DelayAfter(record.wrong);
    return turn;
}

void Throttle::ReportWrong(const std::string& address, Clock::time_point now) {
    const std::lock_guard guard(m_mutex);
    if (m_records.size() >= kMaxAddresses && !m_records.contains(address))
        Forget(now);
    Record& record = m_records[address];
    if (record.wrong > 0 && now - record.lastWrong > kForgetAfter)
        record = {};
    ++record.wrong;
    record.lastWrong = now;
    record.next = std::max(record.next, now + DelayAfter(record.wrong));
}

std::chrono::seconds Throttle::RetryAfter(const std::string& address, Clock::time_point now) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_records.find(address);
    if (found == m_records.end() || found->second.next <= now)
        return std::chrono::seconds{1};
    return std::chrono::ceil<std::chrono::seconds>(found->second.next - now);
}

// Old records go; if none is old enough, the one that was silent longest.
void Throttle::Forget(Clock::time_point now) {
    std::erase_if(m_records, [now](const auto& item) { return now - item.second.lastWrong > kForgetAfter; });
    if (m_records.size() < kMaxAddresses)
        return;
    m_records.erase(
        std::ranges::min_element(m_records, {}, [](const auto& item) { return item.second.lastWrong; }));
}

} // namespace host
