#include "host/base/store_mirror.h"

#include <algorithm>

namespace host {
namespace {

// A change takes Store::kLongestWait at most, and some time until it is settled.
constexpr auto kGoneFor = 4 * Store::kLongestWait;

} // namespace

StoreMirror::StoreMirror(std::shared_ptr<Store> store) : m_store(std::move(store)) {
    m_watching = m_store->Watch([inbox = m_inbox](std::span<const Store::Update> updates) {
        const std::lock_guard guard(inbox->mutex);
        inbox->updates.insert(inbox->updates.end(), updates.begin(), updates.end());
        inbox->read = true;
    });
}

bool StoreMirror::IsRead() const {
    const std::lock_guard guard(m_inbox->mutex);
    return m_inbox->read;
}

std::vector<Store::Update> StoreMirror::Refresh() {
    m_store->Refresh();
    std::vector<Store::Update> updates;
    {
        const std::lock_guard guard(m_inbox->mutex);
        updates.swap(m_inbox->updates);
    }
    if (!m_gone.empty())
        std::erase_if(m_gone, [now = std::chrono::steady_clock::now()](const auto& gone) {
            return gone.second.until < now;
        });
    // Changes of one's own come back.
    std::erase_if(updates, [this](const Store::Update& update) {
        const bool old = IsOld(update);
        if (!old)
            Take(update);
        return old;
    });
    return updates;
}

bool StoreMirror::IsOld(const Store::Update& update) const {
    if (const auto found = m_entries.find(update.key); found != m_entries.end())
        return update.revision <= found->second.revision;
    const auto gone = m_gone.find(update.key);
    return update.revision == 0 || (gone != m_gone.end() && update.revision < gone->second.revision);
}

void StoreMirror::Take(const Store::Update& update) {
    if (update.value) {
        m_entries.insert_or_assign(update.key, Store::Entry{*update.value, update.revision});
        return;
    }
    m_entries.erase(update.key);
    if (update.revision > 0)
        m_gone.insert_or_assign(update.key,
                                Gone{update.revision, std::chrono::steady_clock::now() + kGoneFor});
}

StoreMirror::Values StoreMirror::ValuesNow() const {
    Values values;
    for (const auto& [key, entry] : m_entries)
        values.emplace_hint(values.end(), key, entry.value);
    return values;
}

std::vector<Store::Change> StoreMirror::ChangesTo(const Values& wanted) const {
    return ChangesBetween(ValuesNow(), wanted);
}

std::vector<Store::Change> StoreMirror::ChangesBetween(const Values& before, const Values& wanted) const {
    std::vector<Store::Change> changes;
    const auto add = [&](const std::string& key, std::optional<std::string> value) {
        const auto found = m_entries.find(key);
        changes.push_back({key, std::move(value), found != m_entries.end() ? found->second.revision : 0});
    };
    for (const auto& [key, value] : wanted) {
        const auto found = before.find(key);
        if (found == before.end() || found->second != value)
            add(key, value);
    }
    for (const auto& [key, value] : before) {
        if (!wanted.contains(key))
            add(key, std::nullopt);
    }
    return changes;
}

std::vector<Store::Update> StoreMirror::Settle(std::span<const Store::Change> changes,
                                               std::span<const Store::Outcome> outcomes) {
    std::vector<Store::Update> updates = Refresh();
    const auto take = [&](const std::string& key, std::optional<std::string> value,
                          Store::Revision revision) {
        updates.push_back({key, std::move(value), revision});
        Take(updates.back());
    };
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const auto& [key, value, follows] = changes[i];
        const auto found = m_entries.find(key);
        const Store::Revision known = found != m_entries.end() ? found->second.revision : 0;
        const Store::Outcome& outcome = outcomes[i];
        // What came by the watch since is newer, also that it is gone.
        if (outcome.result == Store::Result::Done &&
            (value ? !IsOld({key, {}, outcome.revision}) : known == follows))
            take(key, value, outcome.revision);
        else if (outcome.result == Store::Result::Conflict && outcome.present &&
                 !IsOld({key, {}, outcome.present->revision}))
            take(key, outcome.present->value, outcome.present->revision);
        else if (outcome.result == Store::Result::Conflict && !outcome.present && known == follows)
            take(key, std::nullopt, 0);
    }
    return updates;
}

bool StoreMirror::Add(std::unique_lock<std::mutex>& lock, const Values& values, std::string* why) {
    for (;;) {
        Values wanted = ValuesNow();
        wanted.insert(values.begin(), values.end());
        const auto changes = ChangesTo(wanted);
        if (changes.empty())
            return true;
        const auto store = m_store;
        lock.unlock();
        const auto outcomes = store->Write(changes);
        lock.lock();
        (void)Settle(changes, outcomes);
        const auto moves = [](const Store::Outcome& outcome) {
            return outcome.result == Store::Result::Done || outcome.result == Store::Result::Conflict;
        };
        if (std::ranges::none_of(outcomes, moves)) {
            *why = outcomes.front().why;
            return false;
        }
    }
}

} // namespace host
