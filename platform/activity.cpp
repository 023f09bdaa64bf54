#include "platform/activity.h"

#include <utility>

namespace platform {
namespace {

thread_local ActivityPtr t_activity;

} // namespace

Activity::~Activity() = default;

Activity* ThreadActivity() noexcept {
    return t_activity.get();
}

ActivityPtr ShareThreadActivity() noexcept {
    return t_activity;
}

ActivityScope::ActivityScope(ActivityPtr activity) noexcept
    : m_former(std::exchange(t_activity, std::move(activity))) {}

ActivityScope::~ActivityScope() {
    t_activity = std::move(m_former);
}

} // namespace platform
