// Records that a secret stands for: sessions, phones, tokens.
//
// A secret is a random number of 256 bits, in hexadecimal digits, and is told once, to whoever it is made
// for. The store has its hash alone, so who reads the store's file has none of them. A record is over once
// its table's rule says so.
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

#include "host/base/text_store.h"
#include "host/base/wait.h"
#include "host/tls/digest.h"
#include "host/users/password.h"

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
//   std::string Line() const                          the same fields, with tabs between them
//   const std::string& Owner() const                  whose it is, for the limit of an owner
//
// What is made or ends is so at once, and is put into the store behind that, by the thread that did it; what
// could not be put is tried again by Save. What others that share the store make or end comes by its watch.
//
// Thread-safe. Locks: m_writing is held while the store is called, the state's mutex is not.
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

    // The store of a table that is kept in that file; empty: in memory alone.
    static std::shared_ptr<Store> InFile(std::string path) {
        const auto check = [](const TextLine& line) {
            return Record::Read(std::span(line.fields).subspan(1)) ? std::string() : "it is none";
        };
        return std::make_shared<TextStore>(
            std::move(path),
            TextStore::Format{
                .title = std::string(Record::kTitle), .what = "file", .key = "hash", .check = check});
    }

    SecretTable(std::shared_ptr<Store> store, IsOver isOver)
        : m_store(std::move(store)), m_isOver(std::move(isOver)),
          m_watching(m_store->Watch(
              [state = m_state.get(), shared = m_store->IsShared()](std::span<const Store::Update> updates) {
                  const std::lock_guard guard(state->mutex);
                  for (const Store::Update& update : updates)
                      state->Take(update, shared);
              })) {}
    SecretTable(const SecretTable&) = delete;
    SecretTable& operator=(const SecretTable&) = delete;

    // Returns the secret. Where the owner has as many as it may, the one that was unused for the longest time
    // ends.
    std::string Add(Record record, Time now) {
        std::string secret;
        {
            const std::lock_guard guard(m_state->mutex);
            if (const Crowd crowd = m_state->CrowdOf(record.Owner()); crowd.count >= kMostOfOwner)
                m_state->Erase(crowd.oldest);
            secret = m_state->Insert(std::move(record), now);
        }
        (void)Write(Part::Urgent);
        return secret;
    }
    // The same, or nothing in that case.
    std::optional<std::string> AddIfRoom(Record record, Time now) {
        std::string secret;
        {
            const std::lock_guard guard(m_state->mutex);
            if (m_state->CrowdOf(record.Owner()).count >= kMostOfOwner)
                return std::nullopt;
            secret = m_state->Insert(std::move(record), now);
        }
        (void)Write(Part::Urgent);
        return secret;
    }
    // Nothing where there is no such record, `use` returns false for it, or it is over. It counts as used.
    template <class Use>
    std::optional<Entry> Find(std::string_view secret, Time now, Use use) {
        if (secret.size() != 2 * kSecretBytes)
            return std::nullopt;
        // The hash is looked up, so the time that this takes tells nothing of the secret.
        const std::string id = Sha256(secret);
        {
            const std::lock_guard guard(m_state->mutex);
            const auto found = m_state->slots.find(id);
            if (found == m_state->slots.end() || !use(found->second.record))
                return std::nullopt;
            Slot& slot = found->second;
            if (!m_isOver(slot.record, now)) {
                slot.changed = slot.changed || slot.record.used != now;
                slot.record.used = now;
                return Entry{id, slot.record, !slot.listeners.empty()};
            }
            if (!slot.MayEnd())
                return std::nullopt;
            m_state->Erase(found);
        }
        (void)Write(Part::Urgent);
        return std::nullopt;
    }
    [[nodiscard]] bool IsGood(std::string_view id, Time now) const {
        const std::lock_guard guard(m_state->mutex);
        const auto found = m_state->slots.find(id);
        return found != m_state->slots.end() && !m_isOver(found->second.record, now);
    }
    // Ends those that `which(id, record)` is true for; returns how many these were.
    template <class Which>
    std::size_t EndIf(Which which) {
        return EndSlots([&](const std::string& id, const Slot& slot) { return which(id, slot.record); });
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
                    slot.changed = true;
                }
            }
        }
        (void)EndSlots([&](const std::string&, const Slot& slot) {
            return m_isOver(slot.record, now) && slot.MayEnd();
        });
    }
    // Writes what has changed and is not in the store; false when that was not possible.
    bool Save() { return Write(Part::All); }
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
        Listeners listeners{};
        Store::Revision revision = 0; // that the store has; 0: it has none, as far as is known
        bool changed = false;         // since then
        Clock::time_point settled{};  // see MayEnd
        // What somebody else has made may hang on what comes a little later, as a user's new password.
        [[nodiscard]] bool MayEnd() const { return Clock::now() >= settled; }
    };
    static constexpr std::chrono::seconds kSettles{10};
    using Map = std::map<std::string, Slot, std::less<>>; // by the hash of the secret
    struct Crowd {
        std::size_t count = 0;
        typename Map::iterator oldest; // that was unused for the longest time
    };
    static std::optional<Record> ReadRecord(std::string_view value) {
        const auto lines = ReadTextTable("\t" + std::string(value));
        return lines.size() == 1 ? Record::Read(std::span(lines[0].fields).subspan(1)) : std::nullopt;
    }
    struct State {
        std::mutex mutex; // everything below
        Map slots;
        std::map<std::string, Store::Revision, std::less<>> ended; // that the store may have still

        // With the mutex held, those below.
        typename Map::iterator Erase(typename Map::iterator slot) {
            ended.insert_or_assign(slot->first, slot->second.revision);
            return Drop(slot);
        }
        typename Map::iterator Drop(typename Map::iterator slot) {
            for (const auto& listener : slot->second.listeners)
                listener();
            return slots.erase(slot);
        }
        [[nodiscard]] Crowd CrowdOf(const std::string& owner) {
            Crowd crowd{0, slots.end()};
            for (auto at = slots.begin(); at != slots.end(); ++at) {
                if (at->second.record.Owner() != owner)
                    continue;
                ++crowd.count;
                if (crowd.oldest == slots.end() || at->second.record.used < crowd.oldest->second.record.used)
                    crowd.oldest = at;
            }
            return crowd;
        }
        std::string Insert(Record record, Time now) {
            std::string secret = RandomHex(kSecretBytes);
            record.made = record.used = now;
            slots.insert_or_assign(Sha256(secret), Slot{.record = std::move(record), .changed = true});
            return secret;
        }
        // What the store has, whoever put it there.
        void Take(const Store::Update& update, bool shared = true) {
            if (const auto gone = ended.find(update.key); gone != ended.end()) {
                // It ends, whatever somebody else has changed of it meanwhile.
                gone->second = update.value ? update.revision : 0;
                return;
            }
            const auto found = slots.find(update.key);
            const bool there = found != slots.end();
            if (there && update.revision <= found->second.revision)
                return;
            if (!update.value) {
                if (there)
                    Drop(found);
                return;
            }
            auto record = ReadRecord(*update.value);
            if (!record)
                return;
            Slot& slot = there ? found->second
                               : slots
                                     .emplace(update.key, Slot{.record = *record,
                                                               .settled = shared ? Clock::now() + kSettles
                                                                                 : Clock::time_point()})
                                     .first->second;
            const Time used = std::max(slot.record.used, record->used);
            slot.changed = used > record->used;
            slot.record = *std::move(record);
            slot.record.used = used;
            slot.revision = update.revision;
        }
        // What has become of a change; false where it is to be tried again later. What is in `ended` behind
        // that was changed by somebody else.
        bool Settle(const Store::Change& change, const Store::Outcome& outcome) {
            const auto slot = slots.find(change.key);
            if (!change.value) {
                if (outcome.result == Store::Result::Unreachable)
                    return false;
                if (outcome.result == Store::Result::Conflict && outcome.present)
                    ended.insert_or_assign(change.key, outcome.present->revision);
                else
                    ended.erase(change.key);
                return true;
            }
            if (slot == slots.end()) {
                // Who ended it meanwhile waits to tell the store.
                if (const auto gone = ended.find(change.key); gone != ended.end())
                    gone->second = std::max(gone->second, outcome.revision);
                return true;
            }
            switch (outcome.result) {
            case Store::Result::Done:
                slot->second.revision = std::max(slot->second.revision, outcome.revision);
                return true;
            case Store::Result::Conflict:
                if (outcome.present)
                    Take({change.key, outcome.present->value, outcome.present->revision});
                else
                    Drop(slot); // somebody has ended it
                return true;
            case Store::Result::Unreachable:
                slot->second.changed = true;
                return false;
            case Store::Result::Refused:
                return false;
            }
            return false;
        }
    };

    template <class Which>
    std::size_t EndSlots(Which which) {
        std::size_t count = 0;
        {
            const std::lock_guard guard(m_state->mutex);
            for (auto at = m_state->slots.begin(); at != m_state->slots.end();) {
                const bool ends = which(at->first, std::as_const(at->second));
                at = ends ? m_state->Erase(at) : std::next(at);
                count += ends ? 1 : 0;
            }
        }
        if (count > 0)
            (void)Write(Part::Urgent);
        return count;
    }
    // Urgent: what was made or has ended; when something was last used can wait.
    enum class Part { Urgent, All };
    // True when nothing is left of that.
    bool Write(Part part) {
        const std::lock_guard writing(m_writing);
        bool written = true;
        std::vector<Store::Change> changes;
        {
            const std::lock_guard guard(m_state->mutex);
            for (const auto& [id, revision] : m_state->ended)
                changes.push_back({id, std::nullopt, revision});
            for (auto& [id, slot] : m_state->slots) {
                if (!slot.changed || (part == Part::Urgent && slot.revision != 0))
                    continue;
                slot.changed = false;
                changes.push_back({id, slot.record.Line(), slot.revision});
            }
        }
        // What somebody else has changed before it could end ends with the second try.
        for (int tries = 0; !changes.empty() && tries < kMostTries; ++tries) {
            const auto outcomes = m_store->Write(changes);
            std::vector<Store::Change> again;
            const std::lock_guard guard(m_state->mutex);
            for (std::size_t i = 0; i < changes.size(); ++i) {
                if (!m_state->Settle(changes[i], outcomes[i]))
                    written = false;
                else if (const auto still = m_state->ended.find(changes[i].key);
                         still != m_state->ended.end())
                    again.push_back({still->first, std::nullopt, still->second});
            }
            changes = std::move(again);
        }
        return written && changes.empty();
    }

    static constexpr int kMostTries = 3;
    const std::shared_ptr<Store> m_store;
    const IsOver m_isOver;
    const std::shared_ptr<State> m_state = std::make_shared<State>(); // what is held may outlive the object
    std::mutex m_writing;
    const Store::Watching m_watching;
};

} // namespace host
