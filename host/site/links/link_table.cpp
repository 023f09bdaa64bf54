#include "host/site/links/link_table.h"

#include "host/users/password.h"

namespace host {

LinkTable::Delivery::~Delivery() {
    if (m_table)
        m_table->End(m_link.token, m_done);
}

std::optional<LinkTable::Link> LinkTable::Make(const std::string& camera, Clock::time_point now) {
    Link link{RandomHex(16), camera, now + kLifetime};
    const std::lock_guard guard(m_mutex);
    std::erase_if(m_links, [now](const auto& entry) { return entry.second.link.until <= now; });
    if (m_links.size() >= kMostLinks)
        return std::nullopt;
    m_links[link.token] = {link, false};
    return link;
}

std::optional<LinkTable::Link> LinkTable::Find(std::string_view token, Clock::time_point now) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_links.find(token);
    if (found == m_links.end() || found->second.link.until <= now)
        return std::nullopt;
    return found->second.link;
}

std::optional<LinkTable::Delivery> LinkTable::Use(std::string_view token, Clock::time_point now) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_links.find(token);
    if (found == m_links.end() || found->second.link.until <= now || found->second.inUse)
        return std::nullopt;
    std::optional<Delivery> delivery(std::in_place, shared_from_this(), found->second.link);
    found->second.inUse = true;
    return delivery;
}

bool LinkTable::Revoke(std::string_view token) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_links.find(token);
    if (found == m_links.end())
        return false;
    m_links.erase(found);
    return true;
}

void LinkTable::End(const std::string& token, bool used) noexcept {
    const std::lock_guard guard(m_mutex);
    const auto found = m_links.find(token);
    if (found == m_links.end())
        return;
    if (used)
        m_links.erase(found);
    else
        found->second.inUse = false;
}

} // namespace host
