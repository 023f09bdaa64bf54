// Ends the program, and names the case, when something takes longer than it does on any machine: a limit that
// is broken would otherwise show as a test program that hangs.
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
