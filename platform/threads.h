// Threads, what they work for, the pool of work items, and time.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "platform/export.h"

namespace platform {

using WorkItem = std::uint32_t (*)(void* context);

inline constexpr std::uint32_t WT_EXECUTELONGFUNCTION = 0x10;

// Runs `function(context)` once on a pool thread; its result is dropped. There is a thread for each item that
// is running: an item never waits for another to end. Idle threads are reused and end after some seconds; an
// item finds last error, code page and locale as on a new thread, and the activity of whoever queued it
// (below). The function must not throw. The module that it stands in stays mapped until it has
// returned. Its stack is 256 KiB. False, with the last error set, when no thread could be had; the item will
// then not run.
MORROW_PLATFORM_API bool QueueUserWorkItem(WorkItem function, void* context, std::uint32_t flags) noexcept;

// Starts a thread of its own with a stack of at least `stackBytes` (0: the pool's size). False as above.
MORROW_PLATFORM_API bool StartThread(WorkItem function, void* context, std::size_t stackBytes) noexcept;

// Work items and started threads that are running now, from the call that queues them on.
MORROW_PLATFORM_API std::uint32_t RunningWorkItems() noexcept;
// Waits until none is running or the time is over; true if none is. For the end of a process and of tests.
MORROW_PLATFORM_API bool WaitForWorkItems(std::uint32_t milliseconds) noexcept;

// What a thread works for: a connection, say, whose name belongs into the thread's log lines.
//
// A thread begins without an activity. A work item and a started thread begin with that of the thread that
// asked for them, and hold it until they are at their end; so whatever an activity owns is let go of when the
// last of its work is done.
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

MORROW_PLATFORM_API void Sleep(std::uint32_t milliseconds) noexcept;
MORROW_PLATFORM_API std::uint32_t CurrentThreadId() noexcept;
MORROW_PLATFORM_API std::uint32_t CurrentProcessId() noexcept;

// The wall clock: whole seconds since 1970.
MORROW_PLATFORM_API std::int64_t SecondsSinceEpoch() noexcept;
// Moves what SecondsSinceEpoch gives, for the whole process.
MORROW_PLATFORM_API void AdvanceClockForTesting(std::int64_t seconds) noexcept;

} // namespace platform
