// Waiting for what another thread does, and an end to what waits for ever.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdio>
#include <cstdlib>
#include <mutex>
#include <stop_token>
#include <string>
#include <thread>
#include <utility>

namespace support {

// True as soon as the condition holds; false when it does not within the time, enough for slow machines.
template <class Condition>
bool Eventually(Condition condition, std::chrono::milliseconds limit = std::chrono::seconds(20)) {
    const auto end = std::chrono::steady_clock::now() + limit;
    while (!condition()) {
        if (std::chrono::steady_clock::now() > end)
            return false;
        std::this_thread::sleep_for(std::chrono::milliseconds(2));
    }
    return true;
}

} // namespace support

// Ends the program, and names the case, when something takes longer than it does on any machine: a limit that
// is broken would otherwise show as a test program that hangs.
class Watchdog {
public:
    explicit Watchdog(std::string strCase, std::chrono::seconds limit = std::chrono::seconds(40))
        : m_strCase(std::move(strCase)), m_thread([this, limit](std::stop_token stop) {
              std::unique_lock lock(m_mutex);
              m_ended.wait_for(lock, stop, limit, [] { return false; });
              if (stop.stop_requested())
                  return;
              std::fprintf(stderr, "%s: not done after %lld s\n", m_strCase.c_str(),
                           static_cast<long long>(limit.count()));
              std::_Exit(1);
          }) {}

private:
    std::string m_strCase;
    std::mutex m_mutex;
    std::condition_variable_any m_ended;
    std::jthread m_thread; // ends before what it uses
};
