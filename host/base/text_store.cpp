#include "host/base/text_store.h"

#include <iterator>

#include "host/base/start_error.h"
#include "platform/messages.h"

namespace host {

TextStore::TextStore(std::string path, Format format) : m_path(std::move(path)), m_format(std::move(format)) {
    if (m_path.empty())
        return;
    m_stamp = platform::StampOf(m_path);
    if (m_stamp.inode == 0)
        return;
    try {
        for (auto& [key, value] : ReadFile())
            m_entries.try_emplace(key, Entry{std::move(value), ++m_last});
    } catch (const StartError&) {
        if (m_format.strict)
            throw;
    }
}

std::map<std::string, std::string> TextStore::ReadFile() {
    const auto content = platform::ReadWholeFile(m_path);
    if (!content)
        throw StartError("cannot read the " + m_format.what + " " + m_path + ": " +
                         platform::DescribeLastError());
    m_titled = content->starts_with(m_format.title + '\n');
    std::map<std::string, std::string> values;
    for (const TextLine& line : ReadTextTable(*content)) {
        std::string wrong = m_format.check(line);
        if (wrong.empty() && m_format.strict && values.contains(line.fields[0]))
            wrong = "this " + m_format.key + " stands there twice";
        if (!wrong.empty() && m_format.strict)
            throw StartError(m_path + ", line " + std::to_string(line.number) + ": " + wrong);
        if (!wrong.empty())
            continue;
        std::string value;
        for (std::size_t i = 1; i < line.fields.size(); ++i)
            value += (i > 1 ? "\t" : "") + line.fields[i];
        values.insert_or_assign(line.fields[0], std::move(value));
    }
    return values;
}

std::string TextStore::ContentWith(const Pending& pending) const {
    std::string content = m_format.title + '\n';
    const auto add = [&](std::string_view key, const std::string& value) {
        content.append(key).append(1, '\t').append(value).append(1, '\n');
    };
    auto change = pending.begin();
    const auto addChangesBefore = [&](const std::string* key) {
        for (; change != pending.end() && (key == nullptr || change->first < *key); ++change) {
            if (change->second->value)
                add(change->first, *change->second->value);
        }
    };
    for (const auto& [key, entry] : m_entries) {
        addChangesBefore(&key);
        if (change != pending.end() && change->first == key)
            continue; // it comes before the next one
        add(key, entry.value);
    }
    addChangesBefore(nullptr);
    return content;
}

Store::Reading TextStore::Get(std::string_view key) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_entries.find(key);
    return {Result::Done, found != m_entries.end() ? std::optional(found->second) : std::nullopt, {}};
}

std::vector<Store::Outcome> TextStore::Write(std::span<const Change> changes) {
    const std::lock_guard guard(m_mutex);
    std::vector<Outcome> outcomes(changes.size());
    Pending pending;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const Change& change = changes[i];
        const auto found = m_entries.find(change.key);
        const bool there = found != m_entries.end();
        if (change.key.empty() || change.key.size() > kMaxKeyBytes ||
            (change.value && change.value->size() > kMaxValueBytes))
            outcomes[i] = {Result::Refused, 0, {}, "a name or what it stands for is too long"};
        else if (change.follows != (there ? found->second.revision : 0))
            outcomes[i] = {Result::Conflict, 0, there ? std::optional(found->second) : std::nullopt, {}};
        else if (change.value || there)
            pending.emplace(change.key, &change);
    }
    // A title that is an old one is a change as well.
    if (pending.empty() && m_titled)
        return outcomes;
    if (!m_path.empty() && FAILED(platform::ReplaceFile(m_path, ContentWith(pending), 0600))) {
        const std::string why =
            "cannot write the " + m_format.what + " " + m_path + ": " + platform::DescribeLastError();
        for (Outcome& outcome : outcomes) {
            if (outcome.result == Result::Done)
                outcome = {Result::Unreachable, 0, {}, why};
        }
        return outcomes;
    }
    m_stamp = m_path.empty() ? m_stamp : platform::StampOf(m_path);
    m_titled = true;
    std::vector<Update> updates;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const auto& [key, value, follows] = changes[i];
        if (!pending.contains(key) || outcomes[i].result != Result::Done)
            continue;
        updates.push_back({key, value, ++m_last});
        if (value) {
            outcomes[i].revision = m_last;
            m_entries.insert_or_assign(key, Entry{*value, m_last});
        } else {
            m_entries.erase(key);
        }
    }
    Tell(updates);
    return outcomes;
}

Store::Watching TextStore::Watch(Listener listener) {
    const std::lock_guard guard(m_mutex);
    std::vector<Update> updates;
    for (const auto& [key, entry] : m_entries)
        updates.push_back({key, entry.value, entry.revision});
    listener(updates);
    auto ear = std::make_shared<Ear>();
    ear->listener = std::move(listener);
    m_ears.remove_if([](const auto& each) { return each.expired(); });
    m_ears.push_back(ear);
    return {ear.get(), [ear](const void*) {
                const std::lock_guard ending(ear->mutex);
                ear->listener = nullptr;
            }};
}

void TextStore::Tell(std::span<const Update> updates) {
    if (updates.empty())
        return;
    for (const auto& each : m_ears) {
        const auto ear = each.lock();
        if (!ear)
            continue;
        const std::lock_guard telling(ear->mutex);
        if (ear->listener)
            ear->listener(updates);
    }
}

void TextStore::Refresh() {
    // While it is being written there is nothing to be read.
    const std::unique_lock lock(m_mutex, std::try_to_lock);
    if (!lock || m_path.empty())
        return;
    const platform::FileStamp stamp = platform::StampOf(m_path);
    if (stamp == m_stamp || stamp.inode == 0)
        return;
    m_stamp = stamp;
    std::map<std::string, std::string> values;
    try {
        values = ReadFile();
    } catch (const StartError&) {
        return;
    }
    std::vector<Update> updates;
    for (auto entry = m_entries.begin(); entry != m_entries.end();) {
        const bool there = values.contains(entry->first);
        if (!there)
            updates.push_back({entry->first, std::nullopt, ++m_last});
        entry = there ? std::next(entry) : m_entries.erase(entry);
    }
    for (auto& [key, value] : values) {
        Entry& entry = m_entries[key];
        if (entry.revision != 0 && entry.value == value)
            continue;
        entry = {std::move(value), ++m_last};
        updates.push_back({key, entry.value, entry.revision});
    }
    Tell(updates);
}

} // namespace host
