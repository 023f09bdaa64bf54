#include "host/site/links/link_table.h"

#include <algorithm>

#include "host/base/text_store.h"
#include "host/http/request.h"
#include "host/users/password.h"

namespace host {
namespace {

using SystemClock = std::chrono::system_clock;

constexpr std::string_view kFree = "free";
constexpr std::string_view kInUse = "in use";

// What other hosts are told: the clock that a link is reckoned by here is this machine's alone.
std::string LinkValue(const LinkTable::Link& link, bool inUse) {
    const auto until = SystemClock::now() + (link.until - Clock::now());
    return PercentEncode(link.camera) + '\t' + SecondsOf(std::chrono::floor<std::chrono::seconds>(until)) +
           '\t' + std::string(inUse ? kInUse : kFree);
}

} // namespace

LinkTable::Delivery::~Delivery() {
    if (m_table)
        m_table->End(m_link.token, m_done);
}

std::shared_ptr<Store> LinkTable::InMemory() {
    return std::make_shared<TextStore>("", TextStore::Format{});
}

LinkTable::LinkTable(std::shared_ptr<Store> store) : m_store(std::move(store)) {
    m_watching = m_store->Watch([this](std::span<const Store::Update> updates) { Take(updates); });
}

void LinkTable::Take(std::span<const Store::Update> updates) {
    const std::lock_guard guard(m_mutex);
    for (const Store::Update& update : updates) {
        const auto found = m_links.find(update.key);
        if (found != m_links.end() && update.revision <= found->second.revision)
            continue;
        const auto lines = ReadTextTable(update.key + '\t' + update.value.value_or(""));
        if (!update.value || lines.size() != 1 || lines[0].fields.size() != 4) {
            if (found != m_links.end())
                m_links.erase(found);
            continue;
        }
        const auto& fields = lines[0].fields;
        const bool inUse = fields[3] == kInUse;
        if (found != m_links.end()) {
            found->second.inUse = inUse;
            found->second.revision = update.revision;
            continue;
        }
        const auto camera = PercentDecode(fields[1]);
        const auto until = SecondsIn(fields[2]);
        if (!camera || !until)
            continue;
        const Link link{update.key, *camera, Clock::now() + (*until - SystemClock::now())};
        m_firstEnd = std::min(m_firstEnd, link.until);
        m_links[update.key] = {link, inUse, update.revision};
    }
}

std::optional<LinkTable::Link> LinkTable::Make(const std::string& camera, Clock::time_point now) {
    const Link link{RandomHex(16), camera, now + kLifetime};
    std::vector<Store::Change> changes;
    {
        const std::lock_guard guard(m_mutex);
        if (m_firstEnd <= now) {
            m_firstEnd = Clock::time_point::max();
            std::erase_if(m_links, [&](const auto& item) {
                const Entry& entry = item.second;
                const bool old = entry.link.until <= now;
                if (old)
                    changes.push_back({item.first, std::nullopt, entry.revision});
                else
                    m_firstEnd = std::min(m_firstEnd, entry.link.until);
                return old;
            });
        }
        if (m_links.size() < kMostLinks)
            changes.push_back({link.token, LinkValue(link, false), 0});
    }
    const auto outcomes = m_store->Write(changes);
    if (changes.empty() || changes.back().key != link.token || outcomes.back().result != Store::Result::Done)
        return std::nullopt;
    const std::lock_guard guard(m_mutex);
    Entry& entry = m_links[link.token];
    entry.link = link;
    m_firstEnd = std::min(m_firstEnd, link.until);
    entry.revision = std::max(entry.revision, outcomes.back().revision);
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
    Entry mine;
    {
        const std::lock_guard guard(m_mutex);
        const auto found = m_links.find(token);
        if (found == m_links.end() || found->second.link.until <= now || found->second.inUse)
            return std::nullopt;
        found->second.inUse = true;
        mine = found->second;
    }
    const auto outcome = m_store->Put(mine.link.token, LinkValue(mine.link, true), mine.revision);
    const std::lock_guard guard(m_mutex);
    const auto found = m_links.find(token);
    if (outcome.result == Store::Result::Done) {
        if (found != m_links.end())
            found->second.revision = std::max(found->second.revision, outcome.revision);
        return std::optional<Delivery>(std::in_place, shared_from_this(), mine.link);
    }
    // Somebody else was quicker, and the watch tells what became of it; or nobody knows, and it may be tried
    // again.
    if (found != m_links.end() && found->second.revision == mine.revision)
        found->second.inUse = outcome.result == Store::Result::Conflict;
    return std::nullopt;
}

bool LinkTable::Remove(const std::string& token, Store::Revision revision) {
    Store::Outcome outcome = m_store->Remove(token, revision);
    if (outcome.result == Store::Result::Conflict && outcome.present)
        outcome = m_store->Remove(token, outcome.present->revision);
    return outcome.result == Store::Result::Done ||
           (outcome.result == Store::Result::Conflict && !outcome.present);
}

bool LinkTable::Revoke(std::string_view token) {
    Entry gone;
    {
        const std::lock_guard guard(m_mutex);
        const auto found = m_links.find(token);
        if (found == m_links.end())
            return true;
        gone = found->second;
        m_links.erase(found);
    }
    return Remove(gone.link.token, gone.revision);
}

void LinkTable::End(const std::string& token, bool used) {
    Entry mine;
    {
        const std::lock_guard guard(m_mutex);
        const auto found = m_links.find(token);
        if (found == m_links.end())
            return;
        mine = found->second;
        if (used)
            m_links.erase(found);
    }
    if (used) {
        // Where that cannot be told, others know it as one that is being used, until it is too old.
        (void)Remove(token, mine.revision);
        return;
    }
    const auto outcome = m_store->Put(token, LinkValue(mine.link, false), mine.revision);
    const std::lock_guard guard(m_mutex);
    const auto found = m_links.find(token);
    if (found == m_links.end() || outcome.result != Store::Result::Done)
        return;
    found->second.inUse = found->second.inUse && found->second.revision > outcome.revision;
    found->second.revision = std::max(found->second.revision, outcome.revision);
}

} // namespace host
