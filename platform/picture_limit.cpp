#include "platform/picture_limit.h"

#include <atomic>
#include <limits>

namespace platform {
namespace {

std::atomic<std::int64_t> g_limit{std::numeric_limits<std::int64_t>::max()};

} // namespace

void SetPictureLimit(std::int64_t pixels) noexcept {
    g_limit.store(pixels, std::memory_order_relaxed);
}

bool IsWithinPictureLimit(std::int32_t width, std::int32_t height) noexcept {
    return width >= 1 && height >= 1 &&
           std::int64_t{width} * height <= g_limit.load(std::memory_order_relaxed);
}

} // namespace platform
