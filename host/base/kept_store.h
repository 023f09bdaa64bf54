// A store that hosts share, and a file of this host that follows it: what was known last.
#pragma once

#include <map>
#include <mutex>

#include "host/base/store_mirror.h"

namespace host {

// While the shared store has not told what is in it, the entries are those of the file, with a revision of
// their own that nothing can follow. One table stands on it.
//
// Any thread. m_mutex is held while the listener is called; the shared store and the file are not called
// under it.
class KeptStore final : public Store {
public:
    // What becomes of the file's entries once the shared store has told its own.
    enum class Entering {
        Take, // they go
        Add   // those that the shared store does not have are put there
    };
    KeptStore(std::shared_ptr<Store> shared, std::shared_ptr<Store> file);

    [[nodiscard]] bool IsRead() const;
    // Behind that, and before the table. Done when it holds.
    [[nodiscard]] Outcome Enter(Entering how);
    // Writes to the file what has changed: now and then, and at the end. False when that was not possible.
    bool Save();

    [[nodiscard]] Reading Get(std::string_view key) override;
    [[nodiscard]] std::vector<Outcome> Write(std::span<const Change> changes) override;
    // Makes the first call at once, be it with what the file has.
    [[nodiscard]] Watching Watch(Listener listener) override;

private:
    // Revisions of the shared store are one higher here.
    static constexpr Revision kOfFile = 1;
    static Revision Raised(Revision revision) noexcept { return revision == 0 ? 0 : revision + kOfFile; }
    void Hear(std::span<const Update> updates);

    const std::shared_ptr<Store> m_shared;
    std::mutex m_saving; // the line below; before m_mutex
    StoreMirror m_file;
    mutable std::mutex m_mutex; // everything below
    StoreMirror::Entries m_known;
    Listener m_listener;
    bool m_read = false;
    bool m_unsaved = false;
    Watching m_watching;
};

} // namespace host
