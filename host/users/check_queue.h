// Who may compute the slow hash of a password, and when.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <mutex>
#include <optional>
#include <string>
#include <utility>
#include <vector>

#include "host/base/wait.h"

namespace host {

// Each hash takes a processor for some ten milliseconds, and 16 MiB, on purpose. So two are computed at a
// time and 64 wait, those of the usual rank before those of the last. When all of these places are taken, one
// who comes takes the place of somebody of a lower rank, or else of the address that has most of them
// waiting, unless that is its own. Thread-safe.
class CheckQueue {
public:
    enum class Rank { Usual, Last };

    class Place {
    public:
        explicit Place(CheckQueue& queue) noexcept : m_queue(&queue) {}
        Place(Place&& other) noexcept : m_queue(std::exchange(other.m_queue, nullptr)) {}
        Place& operator=(Place&&) = delete;
        ~Place() {
            if (m_queue != nullptr)
                m_queue->Leave();
        }

    private:
        CheckQueue* m_queue;
    };

    // Waits for one of the two places. Nothing when too many wait, or the stop signal is raised.
    std::optional<Place> Enter(Rank rank, const std::string& address, const Wakeup& stop);

    [[nodiscard]] std::size_t Waiting() {
        const std::lock_guard guard(m_mutex);
        return m_waiting.size();
    }

private:
    static constexpr std::size_t kAtATime = 2;
    static constexpr std::size_t kMostWaiting = 64;

    // On the stack of who waits.
    struct Waiter {
        enum class State { Waiting, Called, TurnedAway };
        Rank rank;
        const std::string& address;
        State state = State::Waiting;
    };

    void Leave();
    // With m_mutex held.
    bool MakeRoom(const Waiter& newcomer);
    // What a waiter is put behind others for: the higher, the sooner it has to go.
    [[nodiscard]] std::pair<Rank, std::ptrdiff_t> BurdenOf(const Waiter& waiter) const;

    std::mutex m_mutex; // everything below
    std::condition_variable m_changed;
    std::size_t m_working = 0;
    std::vector<Waiter*> m_waiting; // in the order of their coming
};

} // namespace host
