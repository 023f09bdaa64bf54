// A store that the hosts of a test share: in memory, and out of reach or slow to tell where a test wants it
// so.
#pragma once

#include <atomic>
#include <mutex>
#include <utility>

#include "host/base/text_store.h"

namespace support {

class SharedStore final : public host::Store {
public:
    [[nodiscard]] Reading Get(std::string_view key) override {
        return m_away ? Reading{Result::Unreachable, {}, "away"} : m_entries.Get(key);
    }
    [[nodiscard]] std::vector<Outcome> Write(std::span<const Change> changes) override {
        m_written += changes.size();
        return m_away ? std::vector<Outcome>(changes.size(), {Result::Unreachable, 0, {}, "away"})
                      : m_entries.Write(changes);
    }
    [[nodiscard]] Watching Watch(Listener listener) override {
        return m_entries.Watch([this, listener = std::move(listener)](std::span<const Update> updates) {
            if (m_late)
                m_untold.emplace_back(listener, std::vector<Update>(updates.begin(), updates.end()));
            else
                listener(updates);
        });
    }
    void SetAway(bool away) { m_away = away; }
    // What changes from then on is told when this ends. By the thread that changes it.
    void SetLate(bool late) {
        m_late = late;
        for (const auto& [listener, updates] : std::exchange(m_untold, {}))
            listener(updates);
    }
    [[nodiscard]] std::size_t Written() const { return m_written; }

private:
    host::TextStore m_entries{"", {}};
    std::atomic<bool> m_away{false};
    std::atomic<std::size_t> m_written{0}; // changes in all
    bool m_late = false;
    std::vector<std::pair<Listener, std::vector<Update>>> m_untold;
};

} // namespace support
