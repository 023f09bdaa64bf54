// Things by name that are shared by all who have one, and gone with the last of them.
#pragma once

#include <cstddef>
#include <map>
#include <memory>
#include <string>
#include <string_view>
#include <utility>

namespace host {

// Not thread-safe. What nobody has any more costs its place until the table has grown to twice what was in
// use.
template <typename T>
class SharedTable {
public:
    // Null where nobody has it.
    [[nodiscard]] std::shared_ptr<T> Find(std::string_view name) const {
        const auto found = m_entries.find(name);
        return found != m_entries.end() ? found->second.lock() : nullptr;
    }

    // `make()` gives what nobody has yet; what is null is not kept.
    template <typename Make>
    std::shared_ptr<T> FindOrMake(std::string_view name, Make make) {
        if (auto found = Find(name))
            return found;
        std::shared_ptr<T> made = make();
        if (made) {
            MakeRoom();
            m_entries.insert_or_assign(std::string(name), made);
        }
        return made;
    }

    // look(name, thing), in the order of names.
    template <typename Look>
    void ForEach(Look look) const {
        for (const auto& [name, entry] : m_entries) {
            if (const auto thing = entry.lock())
                look(name, thing);
        }
    }

private:
    void MakeRoom() {
        if (m_entries.size() < m_room)
            return;
        std::erase_if(m_entries, [](const auto& entry) { return entry.second.expired(); });
        m_room = 2 * m_entries.size() + kLeastRoom;
    }

    static constexpr std::size_t kLeastRoom = 64;
    std::map<std::string, std::weak_ptr<T>, std::less<>> m_entries;
    std::size_t m_room = kLeastRoom;
};

} // namespace host
