// What a table knows of its store: the entries as they were when it last looked.
#pragma once

#include <chrono>
#include <map>
#include <mutex>

#include "host/base/store.h"

namespace host {

// What becomes of a host's own settings when it joins others whose are different: it does not start; takes
// theirs; or adds what only it has.
enum class Joining { Refuse, Take, Merge };

// So that nobody waits under the lock of a table for its store, a table changes it in three steps: ChangesTo
// with its lock held, Write of the store without, Settle with it again. Others may have changed the store
// meanwhile; what is in force then is what Now has.
//
// Not thread-safe but for IsRead; the table guards it.
class StoreMirror {
public:
    using Values = std::map<std::string, std::string, std::less<>>;
    using Entries = std::map<std::string, Store::Entry, std::less<>>;

    explicit StoreMirror(std::shared_ptr<Store> store);

    // Takes over what has changed since the last look, and returns that. Waits for nothing.
    std::vector<Store::Update> Refresh();
    [[nodiscard]] const Entries& Now() const noexcept { return m_entries; }
    [[nodiscard]] Values ValuesNow() const;
    // The store has told what is in it. Any thread.
    [[nodiscard]] bool IsRead() const;

    // What is to be changed so that the store has these values and no others.
    [[nodiscard]] std::vector<Store::Change> ChangesTo(const Values& wanted) const;
    // The same for what differs between these two alone: whatever else is in the store stays.
    [[nodiscard]] std::vector<Store::Change> ChangesBetween(const Values& before, const Values& wanted) const;
    [[nodiscard]] const std::shared_ptr<Store>& Source() const noexcept { return m_store; }
    // What became of that: returns, with what others have changed, what is another value than before. In the
    // place of a change that somebody else came before is theirs.
    std::vector<Store::Update> Settle(std::span<const Store::Change> changes,
                                      std::span<const Store::Outcome> outcomes);

    // Puts there what the store does not have of these values, with the lock of the table let go of
    // meanwhile; false, and `why` says so, when not all of it could be. Of very many a store may take some at
    // a time.
    [[nodiscard]] bool Add(std::unique_lock<std::mutex>& lock, const Values& values, std::string* why);

private:
    // What was heard to be gone, for as long as a change may be on its way that was made before.
    struct Gone {
        Store::Revision revision = 0;
        std::chrono::steady_clock::time_point until;
    };
    struct Inbox {
        std::mutex mutex;
        std::vector<Store::Update> updates; // that came since the last look
        bool read = false;
    };
    void Take(const Store::Update& update);
    [[nodiscard]] bool IsOld(const Store::Update& update) const;

    std::shared_ptr<Store> m_store;
    Entries m_entries;
    std::map<std::string, Gone, std::less<>> m_gone;
    std::shared_ptr<Inbox> m_inbox = std::make_shared<Inbox>();
    Store::Watching m_watching;
};

} // namespace host
