// Records that a secret stands for: sessions, phones, tokens.
//
// A secret is a random number of 256 bits, in hexadecimal digits, and is told once, to whoever it is made
// for. The file of the data folder (0600, replaced whole) has its hash alone, so who reads the file has none
// of them. A record is over once its table's rule says so.
#pragma once

#include <algorithm>
#include <chrono>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "host/base/text_table.h"
#include "host/tls/digest.h"
#include "host/users/password.h"
#include "platform/files.h"

namespace host {

// What each of them has.
struct SecretRecord {
    using Time = std::chrono::sys_seconds;
    static Time Now() { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); }

    // Takes what all have from the fields of a line; false where a time is none.
    bool Take(const std::string& digestField, std::string_view madeField, std::string_view usedField) {
        const auto madeThen = SecondsIn(madeField);
        const auto usedThen = SecondsIn(usedField);
        digest = digestField;
        made = madeThen.value_or(Time());
        used = usedThen.value_or(Time());
        return madeThen && usedThen;
    }

    std::string digest{}; // of what it hangs on, when it was made
    Time made{};
    Time used{};
};

// Beside those of SecretRecord, a Record has
//
//   static constexpr std::string_view kTitle          the first line of the file
//   static std::optional<Record> Read(std::span<const std::string> fields)
//   std::string Line() const                          the same fields, with a tab in front of each
//   const std::string& Owner() const                  whose it is, for the limit of an owner
//
// Thread-safe.
template <class Record>
class SecretTable {
public:
    using Time = SecretRecord::Time;
    // Called with the lock held; calls nothing here.
    using IsOver = std::function<bool(const Record&, Time now)>;
    static constexpr std::size_t kSecretBytes = 32;
    static constexpr std::size_t kMostOfOwner = 64;

    struct Entry {
        std::string id; // the hash of the secret
        Record record;
        bool held = false;
    };

    // Reads the file; empty: nothing is kept.
    SecretTable(std::string path, IsOver isOver) : m_path(std::move(path)), m_isOver(std::move(isOver)) {
        Read();
    }
    SecretTable(const SecretTable&) = delete;
    SecretTable& operator=(const SecretTable&) = delete;

    // Returns the secret. Where the owner has as many as it may, the one that was unused for the longest time
    // ends.
    std::string Add(Record record, Time now) {
        const std::lock_guard guard(m_state->mutex);
        if (const Crowd crowd = CrowdOf(record.Owner()); crowd.count >= kMostOfOwner)
            Erase(crowd.oldest);
        return Insert(std::move(record), now);
    }
    // The same, or nothing in that case.
    std::optional<std::string> AddIfRoom(Record record, Time now) {
        const std::lock_guard guard(m_state->mutex);
        return CrowdOf(record.Owner()).count < kMostOfOwner ? std::optional(Insert(std::move(record), now))
                                                            : std::nullopt;
    }
    // Nothing where there is no such record, `use` returns false for it, or it is over. It counts as used.
    template <class Use>
    std::optional<Entry> Find(std::string_view secret, Time now, Use use) {
        if (secret.size() != 2 * kSecretBytes)
            return std::nullopt;
        // The hash is looked up, so the time that this takes tells nothing of the secret.
        const std::string id = Sha256(secret);
        const std::lock_guard guard(m_state->mutex);
        const auto found = m_state->slots.find(id);
        if (found == m_state->slots.end() || !use(found->second.record))
            return std::nullopt;
        Record& record = found->second.record;
        if (m_isOver(record, now)) {
            Erase(found);
            (void)Write();
            return std::nullopt;
        }
        m_changed = m_changed || record.used != now;
        record.used = now;
        return Entry{id, record, !found->second.listeners.empty()};
    }
    [[nodiscard]] bool IsGood(std::string_view id, Time now) const {
        const std::lock_guard guard(m_state->mutex);
        const auto found = m_state->slots.find(id);
        return found != m_state->slots.end() && !m_isOver(found->second.record, now);
    }
    // Ends those that `which(id, record)` is true for; returns how many these were.
    template <class Which>
    std::size_t EndIf(Which which) {
        const std::lock_guard guard(m_state->mutex);
        std::size_t count = 0;
        for (auto at = m_state->slots.begin(); at != m_state->slots.end();) {
            const bool ends = which(at->first, std::as_const(at->second.record));
            at = ends ? Erase(at) : std::next(at);
            count += ends ? 1 : 0;
        }
        if (count > 0)
            (void)Write();
        return count;
    }
    // False where there was none of that hash.
    bool End(std::string_view id) {
        return EndIf([id](const std::string& each, const Record&) { return each == id; }) > 0;
    }
    // Ends those that are over, and counts as used what is held: to be called twice a second.
    void Sweep(Time now) {
        {
            const std::lock_guard guard(m_state->mutex);
            for (auto& [id, slot] : m_state->slots) {
                if (!slot.listeners.empty() && slot.record.used < now) {
                    slot.record.used = now;
                    m_changed = true;
                }
            }
        }
        (void)EndIf([&](const std::string&, const Record& record) { return m_isOver(record, now); });
    }
    // Writes what has changed since the file was written; false when that was not possible.
    bool Save() {
        const std::lock_guard guard(m_state->mutex);
        return !m_changed || Write();
    }
    // By the hashes.
    [[nodiscard]] std::vector<Entry> List() const {
        const std::lock_guard guard(m_state->mutex);
        std::vector<Entry> list;
        for (const auto& [id, slot] : m_state->slots)
            list.push_back({id, slot.record, !slot.listeners.empty()});
        return list;
    }

    // Calls `onEnd` when the record ends, with the lock held; until this is let go of, also behind the end of
    // the table, it counts as used. Null where there is no such record any more.
    using Held = std::shared_ptr<const void>;
    [[nodiscard]] Held Hold(std::string_view id, std::function<void()> onEnd) {
        const std::lock_guard guard(m_state->mutex);
        const auto found = m_state->slots.find(id);
        if (found == m_state->slots.end())
            return nullptr;
        Listeners& listeners = found->second.listeners;
        listeners.push_back(std::move(onEnd));
        return {static_cast<const void*>(this),
                [state = m_state, hash = found->first, own = std::prev(listeners.end())](const void*) {
                    const std::lock_guard ending(state->mutex);
                    if (const auto at = state->slots.find(hash); at != state->slots.end())
                        at->second.listeners.erase(own);
                }};
    }

private:
    using Listeners = std::list<std::function<void()>>;
    struct Slot {
        Record record;
        Listeners listeners;
    };
    using Map = std::map<std::string, Slot, std::less<>>; // by the hash of the secret
    struct State {
        std::mutex mutex; // everything below
        Map slots;
    };

    void Read() {
        const auto content = m_path.empty() ? std::nullopt : platform::ReadWholeFile(m_path);
        if (!content)
            return;
        for (const TextLine& line : ReadTextTable(*content)) {
            if (auto record = Record::Read(std::span(line.fields).subspan(1)))
                m_state->slots.insert_or_assign(line.fields[0], Slot{*std::move(record), {}});
        }
    }
    // With the mutex held, those below.
    typename Map::iterator Erase(typename Map::iterator slot) {
        for (const auto& listener : slot->second.listeners)
            listener();
        m_changed = true;
        return m_state->slots.erase(slot);
    }
    struct Crowd {
        std::size_t count = 0;
        typename Map::iterator oldest; // that was unused for the longest time
    };
    [[nodiscard]] Crowd CrowdOf(const std::string& owner) const {
        Crowd crowd{0, m_state->slots.end()};
        for (auto at = m_state->slots.begin(); at != m_state->slots.end(); ++at) {
            if (at->second.record.Owner() != owner)
                continue;
            ++crowd.count;
            if (crowd.oldest == m_state->slots.end() ||
                at->second.record.used < crowd.oldest->second.record.used)
                crowd.oldest = at;
        }
        return crowd;
    }
    std::string Insert(Record record, Time now) {
        std::string secret = RandomHex(kSecretBytes);
        record.made = record.used = now;
        m_state->slots.insert_or_assign(Sha256(secret), Slot{std::move(record), {}});
        (void)Write();
        return secret;
    }
    bool Write() {
        m_changed = false;
        if (m_path.empty())
            return true;
        std::string content(Record::kTitle);
        for (const auto& [id, slot] : m_state->slots)
            content += '\n' + id + slot.record.Line();
        content += '\n';
        m_changed = FAILED(platform::ReplaceFile(m_path, content, 0600));
        return !m_changed;
    }

    const std::string m_path;
    const IsOver m_isOver;
    const std::shared_ptr<State> m_state = std::make_shared<State>(); // what is held may outlive the object
    bool m_changed = false;
};

} // namespace host
