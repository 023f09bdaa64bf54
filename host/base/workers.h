// Threads of an object.
#pragma once

#include <functional>
#include <system_error>
#include <thread>
#include <utility>
#include <vector>

namespace host {

// The threads are told to end and waited for when this goes, also where the object's constructor fails
// because another one could not be started. It is declared behind all members that the threads use.
class Workers {
public:
    // `tellEnd` makes the work of all threads return. Called once; without it, they return by themselves.
    explicit Workers(std::function<void()> tellEnd = nullptr) : m_tellEnd(std::move(tellEnd)) {}
    Workers(const Workers&) = delete;
    Workers& operator=(const Workers&) = delete;
    ~Workers() { End(); }

    // Throws std::system_error where there is no thread to be had.
    template <typename Work>
    void Start(Work work) {
        m_threads.emplace_back(std::move(work));
    }

    // False where there is none to be had: the caller does the work, or does without.
    template <typename Work>
    [[nodiscard]] bool TryStart(Work work) {
        try {
            Start(std::move(work));
            return true;
        } catch (const std::system_error&) {
            return false;
        }
    }

    // Returns when all have ended.
    void End() noexcept {
        if (const auto tellEnd = std::exchange(m_tellEnd, nullptr))
            tellEnd();
        for (std::thread& thread : m_threads)
            thread.join();
        m_threads.clear();
    }

private:
    std::function<void()> m_tellEnd;
    std::vector<std::thread> m_threads;
};

} // namespace host
