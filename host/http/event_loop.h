// The threads that connections share which last and mostly wait: those of watchers and of pages.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <functional>
#include <memory>
#include <vector>

#include "host/base/wait.h"

namespace boost::asio {
class io_context;
}

namespace host {

// One thread with all that was given to it. What it calls never waits for anything; what may is done
// Elsewhere. Unless told otherwise the operations belong to the loop's thread.
class EventLoop {
    class Inside;

public:
    EventLoop(const EventLoop&) = delete;
    EventLoop& operator=(const EventLoop&) = delete;
    ~EventLoop();

    // Any thread. Calls `work` on the loop's thread, soon.
    void Post(std::function<void()> work);
    // Any thread. Calls `work` on a thread of the pool, which has one for each that waits: for a disk, or for
    // a lock that somebody holds for long.
    static void Elsewhere(std::function<void()> work);
    // Whether the server stops: AtStop has been called.
    [[nodiscard]] bool IsStopping() const noexcept;
    // Counts from 0. Any thread.
    [[nodiscard]] std::size_t Number() const noexcept { return m_number; }
    // What it is made of. Any thread.
    [[nodiscard]] boost::asio::io_context& Context() noexcept;

    // Calls `happened` with what epoll tells of a descriptor (level-triggered) for as long as it lives, which
    // is until before the descriptor is closed. `happened` may end it.
    class Interest {
    public:
        Interest(EventLoop& loop, int fd, std::uint32_t events, std::function<void(std::uint32_t)> happened);
        Interest(const Interest&) = delete;
        Interest& operator=(const Interest&) = delete;
        ~Interest();
        void Change(std::uint32_t events);

    private:
        friend class EventLoop;
        Inside& m_loop;
        const int m_fd;
        const std::uint64_t m_number;
        std::uint32_t m_events;
        const std::function<void(std::uint32_t)> m_happened;
    };

    // Calls `happened` once, when the server stops. Not made where it does already.
    class AtStop {
    public:
        AtStop(EventLoop& loop, std::function<void()> happened);
        AtStop(const AtStop&) = delete;
        AtStop& operator=(const AtStop&) = delete;
        ~AtStop();

    private:
        friend class EventLoop;
        Inside& m_loop;
        const std::function<void()> m_happened;
    };

    // Calls `happened` at a time; a later call of At replaces an earlier one. Any thread may make and end
    // one.
    class Timer {
    public:
        explicit Timer(EventLoop& loop);
        Timer(const Timer&) = delete;
        Timer& operator=(const Timer&) = delete;
        ~Timer(); // NOLINT(bugprone-exception-escape): a timer of the reactor can always be cancelled
        void At(Clock::time_point when, std::function<void()> happened);

    private:
        struct Wait;
        const std::shared_ptr<Wait> m_wait;
    };

    // A connection that the loop has. Any thread.
    class Load {
    public:
        explicit Load(EventLoop& loop) noexcept : m_loop(loop) { ++m_loop.m_load; }
        Load(const Load&) = delete;
        Load& operator=(const Load&) = delete;
        ~Load() { --m_loop.m_load; }

    private:
        EventLoop& m_loop;
    };

private:
    friend class EventLoops;
    EventLoop(std::size_t number, std::unique_ptr<Inside> inside);

    const std::size_t m_number;
    std::atomic<std::size_t> m_load{0};
    const std::unique_ptr<Inside> m_inside; // last: its thread uses the others
};

// A loop for each core.
class EventLoops {
public:
    // The stop signal outlives the object. What was given to the loops has ended before the end of the
    // object, and with it whatever it wanted done elsewhere.
    explicit EventLoops(const Wakeup& stop);
    EventLoops(const EventLoops&) = delete;
    EventLoops& operator=(const EventLoops&) = delete;
    ~EventLoops();

    // The one that has the fewest connections. Any thread.
    [[nodiscard]] EventLoop& Choose() const noexcept;
    [[nodiscard]] std::size_t Count() const noexcept { return m_loops.size(); }

private:
    std::vector<std::unique_ptr<EventLoop>> m_loops;
};

} // namespace host
