// Locks. A critical section is re-entrant on its thread.
#pragma once

#include <mutex>

namespace platform {

// A re-entrant lock with a spin count: how often an acquisition tries before it sleeps. 0 sleeps at once.
class CriticalSection {
public:
    explicit CriticalSection(unsigned spinCount = 0) noexcept : m_spinCount(spinCount) {}
    CriticalSection(const CriticalSection&) = delete;
    CriticalSection& operator=(const CriticalSection&) = delete;

    void lock() {
        for (unsigned n = m_spinCount; n > 0; --n) {
            if (m_mutex.try_lock())
                return;
        }
        m_mutex.lock();
    }
    bool try_lock() { return m_mutex.try_lock(); }
    void unlock() { m_mutex.unlock(); }

private:
    std::recursive_mutex m_mutex;
    const unsigned m_spinCount;
};

// Holds a critical section for a scope.
using SectionGuard = std::unique_lock<CriticalSection>;

} // namespace platform
