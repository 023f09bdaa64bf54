// Waiting for what another thread does.
#pragma once

#include <chrono>
#include <thread>

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
