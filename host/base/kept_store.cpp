#include "host/base/kept_store.h"

namespace host {

KeptStore::KeptStore(std::shared_ptr<Store> shared, std::shared_ptr<Store> file)
    : m_shared(std::move(shared)), m_file(std::move(file)) {
    (void)m_file.Refresh();
    for (const auto& [key, entry] : m_file.Now())
        m_known.emplace_hint(m_known.end(), key, Entry{entry.value, kOfFile});
    m_watching = m_shared->Watch([this](std::span<const Update> updates) { Hear(updates); });
}

bool KeptStore::IsRead() const {
    const std::lock_guard guard(m_mutex);
    return m_read;
}

void KeptStore::Hear(std::span<const Update> updates) {
    const std::lock_guard guard(m_mutex);
    std::vector<Update> news;
    for (const Update& update : updates) {
        news.push_back({update.key, update.value, Raised(update.revision)});
        if (update.value)
            m_known.insert_or_assign(update.key, Entry{*update.value, Raised(update.revision)});
        else
            m_known.erase(update.key);
    }
    // Of the file's, the first call leaves those that have come.
    for (auto at = m_known.begin(); !m_read && at != m_known.end();) {
        const bool gone = at->second.revision == kOfFile;
        if (gone)
            news.push_back({at->first, std::nullopt, kOfFile + 1});
        at = gone ? m_known.erase(at) : std::next(at);
    }
    m_read = true;
    m_unsaved = true;
    if (m_listener && !news.empty())
        m_listener(news);
}

Store::Outcome KeptStore::Enter(Entering how) {
    const std::lock_guard saving(m_saving);
    std::vector<Change> changes;
    {
        const std::lock_guard guard(m_mutex);
        if (!m_read)
            return {Result::Unreachable, 0, {}, "the other hosts of the cluster cannot be reached"};
        for (const auto& [key, entry] : m_file.Now()) {
            if (how == Entering::Add && !m_known.contains(key))
                changes.push_back({key, entry.value, 0});
        }
    }
    // Of very many the store may take a part at a time.
    while (!changes.empty()) {
        const auto outcomes = m_shared->Write(changes);
        std::vector<Change> left;
        const std::lock_guard guard(m_mutex);
        for (std::size_t i = 0; i < changes.size(); ++i) {
            Change& change = changes[i];
            if (outcomes[i].result == Result::Done)
                m_known.insert_or_assign(change.key, Entry{*change.value, Raised(outcomes[i].revision)});
            else if (outcomes[i].present) // somebody else was quicker, and theirs holds
                m_known.insert_or_assign(
                    change.key, Entry{outcomes[i].present->value, Raised(outcomes[i].present->revision)});
            else if (outcomes[i].result == Result::Refused)
                return outcomes[i];
            else
                left.push_back(std::move(change));
        }
        if (left.size() == changes.size())
            return outcomes.front();
        changes = std::move(left);
    }
    return {};
}

bool KeptStore::Save() {
    const std::lock_guard saving(m_saving);
    StoreMirror::Values values;
    {
        const std::lock_guard guard(m_mutex);
        if (!m_read || !m_unsaved)
            return true;
        for (const auto& [key, entry] : m_known)
            values.emplace_hint(values.end(), key, entry.value);
        m_unsaved = false;
    }
    const auto changes = m_file.ChangesTo(values);
    const auto outcomes = m_file.Source()->Write(changes);
    (void)m_file.Settle(changes, outcomes);
    for (const Outcome& outcome : outcomes) {
        if (outcome.result == Result::Done)
            continue;
        const std::lock_guard guard(m_mutex);
        m_unsaved = true;
        return false;
    }
    return true;
}

Store::Reading KeptStore::Get(std::string_view key) {
    Reading reading = m_shared->Get(key);
    if (reading.entry)
        reading.entry->revision = Raised(reading.entry->revision);
    return reading;
}

std::vector<Store::Outcome> KeptStore::Write(std::span<const Change> changes) {
    std::vector<Change> lowered(changes.begin(), changes.end());
    for (Change& change : lowered)
        change.follows = change.follows == 0 ? 0 : change.follows - kOfFile;
    std::vector<Outcome> outcomes = m_shared->Write(lowered);
    for (Outcome& outcome : outcomes) {
        outcome.revision = Raised(outcome.revision);
        if (outcome.present)
            outcome.present->revision = Raised(outcome.present->revision);
    }
    return outcomes;
}

Store::Watching KeptStore::Watch(Listener listener) {
    const std::lock_guard guard(m_mutex);
    std::vector<Update> updates;
    for (const auto& [key, entry] : m_known)
        updates.push_back({key, entry.value, entry.revision});
    listener(updates);
    m_listener = std::move(listener);
    return {static_cast<const void*>(this), [this](const void*) {
                const std::lock_guard ending(m_mutex);
                m_listener = nullptr;
            }};
}

} // namespace host
