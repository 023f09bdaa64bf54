// What a thread works for: a connection, say, whose name belongs into the thread's log lines.
//
// A thread begins without an activity. A work item and a started thread begin with that of the thread that
// asked for them, and hold it until they are at their end; so whatever an activity owns is let go of when the
// last of its work is done.
#pragma once

#include <memory>

#include "platform/export.h"

namespace platform {

class MORROW_PLATFORM_API Activity {
public:
    Activity() = default;
    Activity(const Activity&) = delete;
    Activity& operator=(const Activity&) = delete;
    virtual ~Activity();
};
using ActivityPtr = std::shared_ptr<Activity>;

// Of the calling thread; null without one. Valid until the thread gets another.
MORROW_PLATFORM_API Activity* ThreadActivity() noexcept;

// Gives the calling thread an activity for the length of a scope, and its former one back afterwards.
class MORROW_PLATFORM_API ActivityScope {
public:
    explicit ActivityScope(ActivityPtr activity) noexcept;
    ActivityScope(const ActivityScope&) = delete;
    ActivityScope& operator=(const ActivityScope&) = delete;
    ~ActivityScope();

private:
    ActivityPtr m_former;
};

// A share of the calling thread's activity, for work that goes on elsewhere.
MORROW_PLATFORM_API ActivityPtr ShareThreadActivity() noexcept;

} // namespace platform
