// What a program outside knows by number.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <mutex>
#include <utility>
#include <vector>

namespace capi {

enum class Kind : std::uint8_t { Server, Subscription, Frame, Source };

// Gives objects handles, and finds them again. A handle is a place and the number of its use: the lower 24
// bits are the place and never 0, the upper 40 count, so that no handle comes twice in a process's life. Any
// thread.
//
// An object has a number of holds, one at first, and its handle dies with the last.
class HandleTable {
public:
    // Never ends: threads of callers may be in here while the process does.
    static HandleTable& Get();

    // 0 when 16,777,215 handles are there already. T::kKind names the kind.
    template <class T>
    std::uint64_t Add(std::shared_ptr<T> object) {
        return Add(T::kKind, std::move(object));
    }
    // Null for a handle that is dead, or of another kind.
    template <class T>
    std::shared_ptr<T> Find(std::uint64_t handle) {
        return std::static_pointer_cast<T>(Find(T::kKind, handle));
    }
    // The same, and the handle is dead afterwards, whatever holds there were.
    template <class T>
    std::shared_ptr<T> Take(std::uint64_t handle) {
        return std::static_pointer_cast<T>(Take(T::kKind, handle));
    }
    // One hold more. False as above.
    bool Hold(Kind kind, std::uint64_t handle);
    // A hold of `handle` less, but for the first one if it is lent: false then, and as above.
    bool Drop(Kind kind, std::uint64_t handle);
    // The first hold is nobody's but this library's for as long as it lends the object.
    void Lend(std::uint64_t handle);
    void EndLoan(std::uint64_t handle);

private:
    struct Place {
        std::uint64_t use = 0;
        std::shared_ptr<void> object; // null while the place is free
        Kind kind = Kind::Server;
        bool lent = false;
        std::uint32_t holds = 0;
    };

    std::uint64_t Add(Kind kind, std::shared_ptr<void> object);
    std::shared_ptr<void> Find(Kind kind, std::uint64_t handle);
    std::shared_ptr<void> Take(Kind kind, std::uint64_t handle);
    // With m_mutex held. Null for a handle that is dead, or of another kind.
    Place* At(Kind kind, std::uint64_t handle);
    // What was there, to be let go of outside the lock.
    std::shared_ptr<void> Free(Place& place);

    std::mutex m_mutex; // everything below
    std::vector<Place> m_places = std::vector<Place>(1);
    std::vector<std::uint32_t> m_free;
};

} // namespace capi
