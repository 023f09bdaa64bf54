#include "platform/threads.h"

#include <pthread.h>
#include <sched.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <chrono>
#include <climits>
#include <condition_variable>
#include <ctime>
#include <memory>
#include <mutex>
#include <new>
#include <optional>
#include <utility>

#include "platform/modules.h"
#include "platform/status.h"
#include "platform/text.h"

namespace platform {

namespace {

// Instrumented code needs several times the stack.
#if defined(__SANITIZE_ADDRESS__) || defined(__SANITIZE_THREAD__)
constexpr std::size_t kStackFactor = 4;
#else
constexpr std::size_t kStackFactor = 1;
#endif
// What a connection needs lies far below; frames and tables are on the heap. A thousand of these are address
// space, not memory: only touched pages count.
constexpr std::size_t kPoolStackBytes = std::size_t{256} << 10;
constexpr std::size_t kMaxStackBytes = std::size_t{1} << 30;
// How long an idle thread waits for another item.
constexpr std::chrono::seconds kIdleTime{5};

thread_local ActivityPtr t_activity;

struct Task {
    WorkItem function = nullptr;
    void* context = nullptr;
    // From the call that queues on, which comes from a module that is in use. The thread lets go of it before
    // the task counts as ended, outside the module's code and under no lock.
    ModulePin pin{};
    ActivityPtr activity{}; // of whoever queued it

    // Once.
    void Run() {
        const ActivityScope scope(std::move(activity));
        // A reused thread starts like a new one.
        SetLastError(kErrorSuccess);
        (void)SetThreadCodePage(0);
        SetThreadLocale(kLocaleSystemDefault);
        (void)function(context);
    }
};

// One thread that waits for its next task; lives on that thread's stack.
struct IdleWorker {
    std::condition_variable wake;
    Task task;                   // set by whoever takes the worker off the list
    bool dismissed = false;      // taken off the list to end
    IdleWorker* below = nullptr; // the next in the list of the idle
};

class Pool {
public:
    // Never destroyed: tasks may run on while the process ends. Where none does, the process ends alone.
    static Pool& Instance() {
        static Pool& pool = *new Pool;
        struct End {
            ~End() { pool.EndIdleThreads(); }
        };
        static const End end;
        return pool;
    }

    bool Queue(Task task) {
        {
            const std::scoped_lock guard(m_mutex);
            ++m_running;
            if (IdleWorker* const worker = m_idle) {
                m_idle = worker->below; // the one that ran last, so the surplus runs into its time limit
                worker->task = std::move(task);
                worker->wake.notify_one();
                return true;
            }
        }
        return Start(std::move(task), kPoolStackBytes, &RunPoolThread);
    }

    bool StartAlone(Task task, std::size_t stackBytes) {
        {
            const std::scoped_lock guard(m_mutex);
            ++m_running;
        }
        return Start(std::move(task), stackBytes == 0 ? kPoolStackBytes : stackBytes, &RunAlone);
    }

    std::uint32_t Running() {
        const std::scoped_lock guard(m_mutex);
        return m_running;
    }

    bool WaitUntilNoneRuns(std::chrono::milliseconds time) {
        std::unique_lock guard(m_mutex);
        return m_changed.wait_for(guard, time, [this] { return m_running == 0; });
    }

    void EndIdleThreads() {
        std::unique_lock guard(m_mutex);
        m_changed.wait_for(guard, kIdleTime, [this] {
            for (; m_idle != nullptr; m_idle = m_idle->below) {
                m_idle->dismissed = true;
                m_idle->wake.notify_one();
            }
            return m_threads == m_running;
        });
        JoinFormer(std::exchange(m_former, std::nullopt), guard);
    }

private:
    using ThreadFunction = void* (*)(void*);

    // The task is counted as running already; not any more when there is no thread for it.
    bool Start(Task task, std::size_t stackBytes, ThreadFunction function) {
        std::unique_ptr<Task> handedOver(new (std::nothrow) Task(std::move(task)));
        const int error =
            handedOver == nullptr ? ENOMEM : CreateThread(function, handedOver.get(), stackBytes);
        if (error == 0) {
            (void)handedOver.release(); // the thread's
            return true;
        }
        SetLastError(ErrorFromErrno(error));
        const std::scoped_lock guard(m_mutex);
        CountEnd();
        return false;
    }

    // Counts the thread before it is there, since it may have ended when pthread_create returns.
    int CreateThread(ThreadFunction function, void* argument, std::size_t stackBytes) {
        {
            const std::scoped_lock guard(m_mutex);
            ++m_threads;
        }
        const int error = CreateJoinable(function, argument, stackBytes);
        if (error != 0) {
            const std::scoped_lock guard(m_mutex);
            --m_threads;
            m_changed.notify_all();
        }
        return error;
    }

    // 0, or the value of errno.
    static int CreateJoinable(ThreadFunction function, void* argument, std::size_t stackBytes) noexcept {
        if (stackBytes > kMaxStackBytes)
            return EINVAL;
        const auto page = static_cast<std::size_t>(::sysconf(_SC_PAGESIZE));
        const std::size_t wanted =
            std::max(stackBytes, static_cast<std::size_t>(PTHREAD_STACK_MIN)) * kStackFactor;
        pthread_attr_t attributes;
        if (const int error = ::pthread_attr_init(&attributes); error != 0)
            return error;
        pthread_t thread{};
        int error = ::pthread_attr_setstacksize(&attributes, (wanted + page - 1) / page * page);
        if (error == 0)
            error = ::pthread_create(&thread, &attributes, function, argument);
        ::pthread_attr_destroy(&attributes);
        return error;
    }

    static Task TakeOver(void* argument) noexcept {
        return std::move(*std::unique_ptr<Task>(static_cast<Task*>(argument)));
    }

    static void* RunAlone(void* argument) {
        TakeOver(argument).Run();
        Pool& pool = Instance();
        std::unique_lock guard(pool.m_mutex);
        pool.CountEnd();
        pool.EndThread(guard);
        return nullptr;
    }

    static void* RunPoolThread(void* argument) {
        Instance().WorkUntilIdle(TakeOver(argument));
        return nullptr;
    }

    void WorkUntilIdle(Task task) {
        IdleWorker self;
        self.task = std::move(task);
        for (;;) {
            self.task.Run();
            self.task = {};
            std::unique_lock guard(m_mutex);
            CountEnd();
            self.below = m_idle;
            m_idle = &self;
            if (!self.wake.wait_for(guard, kIdleTime,
                                    [&] { return self.task.function != nullptr || self.dismissed; }))
                Unlink(self);
            if (self.task.function == nullptr) {
                EndThread(guard);
                return;
            }
        }
    }

    // The last that a thread does here. Nobody waits for a certain thread, so each waits for the one that
    // ended before it: that one is past this place, and no thread is left behind unjoined but the last.
    void EndThread(std::unique_lock<std::mutex>& guard) {
        const auto former = std::exchange(m_former, ::pthread_self());
        --m_threads;
        m_changed.notify_all();
        JoinFormer(former, guard);
    }

    static void JoinFormer(std::optional<pthread_t> former, std::unique_lock<std::mutex>& guard) {
        guard.unlock();
        if (former.has_value())
            (void)::pthread_join(*former, nullptr);
    }

    // Under m_mutex.
    void Unlink(const IdleWorker& worker) noexcept {
        IdleWorker** place = &m_idle;
        while (*place != &worker)
            place = &(*place)->below;
        *place = worker.below;
    }

    // Under m_mutex.
    void CountEnd() noexcept {
        if (--m_running == 0)
            m_changed.notify_all();
    }

    std::mutex m_mutex;
    std::condition_variable m_changed; // no task runs any more, or a thread ends
    // All of these under m_mutex.
    std::uint32_t m_running = 0;       // tasks, from the call that queues on
    std::uint32_t m_threads = 0;       // from before they begin until they have nothing left to do but end
    IdleWorker* m_idle = nullptr;      // the last one to become idle comes first
    std::optional<pthread_t> m_former; // the thread that ended last; not joined yet
};

Task MakeTask(WorkItem function, void* context) noexcept {
    return {function, context, ModulePin(reinterpret_cast<const void*>(function)), ShareThreadActivity()};
}

bool RefuseNull(WorkItem function) noexcept {
    if (function == nullptr)
        SetLastError(kErrorInvalidParameter);
    return function == nullptr;
}

std::atomic<std::int64_t> g_clockOffset{0}; // seconds

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

bool QueueUserWorkItem(WorkItem function, void* context, std::uint32_t /*flags*/) noexcept {
    // Every item has a thread of its own, so a long-running one needs no other treatment.
    return !RefuseNull(function) && Pool::Instance().Queue(MakeTask(function, context));
}

bool StartThread(WorkItem function, void* context, std::size_t stackBytes) noexcept {
    return !RefuseNull(function) && Pool::Instance().StartAlone(MakeTask(function, context), stackBytes);
}

std::uint32_t RunningWorkItems() noexcept {
    return Pool::Instance().Running();
}

bool WaitForWorkItems(std::uint32_t milliseconds) noexcept {
    return Pool::Instance().WaitUntilNoneRuns(std::chrono::milliseconds(milliseconds));
}

void Sleep(std::uint32_t milliseconds) noexcept {
    if (milliseconds == 0) {
        ::sched_yield();
        return;
    }
    timespec left{static_cast<time_t>(milliseconds / 1000),
                  static_cast<long>(milliseconds % 1000) * 1'000'000};
    while (::clock_nanosleep(CLOCK_MONOTONIC, 0, &left, &left) == EINTR) {
    }
}

std::uint32_t CurrentThreadId() noexcept {
    // Asked of the kernel once: nothing here forks a process that goes on without another program.
    thread_local const auto id = static_cast<std::uint32_t>(::gettid());
    return id;
}

std::uint32_t CurrentProcessId() noexcept {
    return static_cast<std::uint32_t>(::getpid());
}

std::int64_t SecondsSinceEpoch() noexcept {
    return static_cast<std::int64_t>(std::time(nullptr)) + g_clockOffset.load(std::memory_order_relaxed);
}

void AdvanceClockForTesting(std::int64_t seconds) noexcept {
    g_clockOffset.fetch_add(seconds, std::memory_order_relaxed);
}

} // namespace platform
