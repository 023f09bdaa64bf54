#include "host/log/line_limiter.h"

#include <algorithm>

namespace host {
namespace {

// "117,000"
std::string Grouped(std::uint64_t number) {
    std::string digits = std::to_string(number);
    for (std::size_t at = digits.size(); at > 3;)
        digits.insert(at -= 3, ",");
    return digits;
}

} // namespace

void LineLimiter::Tell(Entry& entry) {
    if (entry.more == 1)
        m_write(entry.channel, entry.text);
    else if (entry.more > 1)
        m_write(entry.channel, entry.text + " ... " + Grouped(entry.more) + " more");
    entry.more = 0;
}

void LineLimiter::Add(const std::string& key, std::string_view channel, std::string_view text,
                      Clock::time_point now) {
    Tick(now);
    if (const auto found = m_entries.find(key); found != m_entries.end()) {
        ++found->second.more;
        found->second.text = text;
        return;
    }
    if (m_entries.size() >= kMostKeys) {
        const auto oldest =
            std::ranges::min_element(m_entries, {}, [](const auto& item) { return item.second.written; });
        Tell(oldest->second);
        m_entries.erase(oldest);
    }
    const auto& entry = m_entries.emplace(key, Entry{std::string(channel), std::string(text), 0, now});
    m_due = std::min(m_due, now + kInterval);
    m_write(entry.first->second.channel, entry.first->second.text);
}

void LineLimiter::Tick(Clock::time_point now) {
    if (now < m_due)
        return;
    m_due = Clock::time_point::max();
    for (auto entry = m_entries.begin(); entry != m_entries.end();) {
        if (now - entry->second.written >= kInterval) {
            if (entry->second.more == 0) {
                entry = m_entries.erase(entry);
                continue;
            }
            Tell(entry->second);
            entry->second.written = now;
        }
        m_due = std::min(m_due, entry->second.written + kInterval);
        ++entry;
    }
}

void LineLimiter::Flush() {
    for (auto& [key, entry] : m_entries)
        Tell(entry);
    m_entries.clear();
}

} // namespace host
