#include "platform/clock.h"

#include <atomic>
#include <ctime>

namespace platform {
namespace {

std::atomic<std::int64_t> g_offset{0};

} // namespace

std::int64_t SecondsSinceEpoch() noexcept {
    return static_cast<std::int64_t>(std::time(nullptr)) + g_offset.load(std::memory_order_relaxed);
}

void AdvanceClockForTesting(std::int64_t seconds) noexcept {
    g_offset.fetch_add(seconds, std::memory_order_relaxed);
}

} // namespace platform
