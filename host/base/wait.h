// Descriptors, waiting and stopping.
//
// Every thread of the web server waits in WaitFor, which also watches the stop signal: raising it once ends
// every wait of the server at once, and so every thread.
#pragma once

#include <atomic>
#include <chrono>

#include "platform/scope.h"

namespace host {

using Clock = std::chrono::steady_clock;

using platform::Descriptor;

// A descriptor that can be waited for and becomes readable when somebody signals. Signals add up to one.
class Wakeup {
public:
    Wakeup(); // throws std::system_error when there is no descriptor left
    // Any thread; costs a system call only for the first signal after a Clear.
    void Signal() noexcept;
    // Call before looking at what the signal is about, so that a later change signals again.
    void Clear() noexcept;
    [[nodiscard]] bool IsSet() const noexcept { return m_set.load(std::memory_order_acquire); }
    [[nodiscard]] int Fd() const noexcept { return m_fd.Get(); }

private:
    Descriptor m_fd;
    std::atomic<bool> m_set{false};
};

enum class Waited { Ready, Woken, Timeout, Stopped };

// Names what WaitFor waits for. Any of the descriptors may be -1.
struct WaitSet {
    int socket = -1;
    short socketEvents = 0; // POLLIN, POLLOUT, POLLRDHUP; errors always count
    const Wakeup* wakeup = nullptr;
    const Wakeup* stop = nullptr;
};
// The stop signal wins over readiness, readiness over a wake-up.
Waited WaitFor(const WaitSet& set, Clock::time_point deadline);

} // namespace host
