#include "host/http/event_loop.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <exception>
#include <string>
#include <system_error>
#include <thread>
#include <unordered_map>
#include <unordered_set>

#include <sys/epoll.h>

#include <boost/asio/basic_waitable_timer.hpp>
#include <boost/asio/executor_work_guard.hpp>
#include <boost/asio/io_context.hpp>
#include <boost/asio/posix/basic_stream_descriptor.hpp>
#include <boost/asio/post.hpp>

#include "host/log/console.h"
#include "platform/threads.h"

namespace host {
namespace {

namespace asio = boost::asio;
using boost::system::error_code;
using LoopExecutor = asio::io_context::executor_type;

[[noreturn]] void ThrowErrno(const char* what) {
    throw std::system_error(errno, std::generic_category(), what);
}

// What goes wrong in one connection is that one's, and looked after there. This is for what is nobody's.
void LogFailure(const std::exception& error) noexcept {
    try {
        Console::Get().Log("error", std::string("a loop of connections: ") + error.what());
    } catch (const std::exception&) {
        // Not even the memory for the line.
    }
}

} // namespace

// The interests have an epoll of their own, of which that of the library sees one descriptor: a watcher then
// costs no object of the library, and its end is seen at once, whatever lies unread before it.
class EventLoop::Inside {
public:
    explicit Inside(const Wakeup& stop)
        : m_stop(stop), m_epoll(::epoll_create1(EPOLL_CLOEXEC)), m_guard(m_context.get_executor()),
          m_ready(m_context) {
        if (!m_epoll)
            ThrowErrno("epoll");
        m_ready.assign(m_epoll.Get());
    }
    Inside(const Inside&) = delete;
    Inside& operator=(const Inside&) = delete;
    ~Inside() {
        if (m_thread.joinable()) // it could be had
            End();
        m_ready.release();
    }

    void Start(EventLoop& loop) {
        m_stopping =
            std::make_unique<Interest>(loop, m_stop.Fd(), EPOLLIN, [this](std::uint32_t) { StopAll(); });
        Await();
        m_thread = std::thread([this] { Run(); });
    }

    asio::io_context& Context() noexcept { return m_context; }
    [[nodiscard]] bool IsStopping() const noexcept { return m_stops; }

    std::uint64_t Add(Interest& interest, int fd, std::uint32_t events) {
        const std::uint64_t number = ++m_lastNumber;
        m_interests.emplace(number, &interest);
        epoll_event event{events, {}};
        event.data.u64 = number;
        if (::epoll_ctl(m_epoll.Get(), EPOLL_CTL_ADD, fd, &event) != 0) {
            m_interests.erase(number);
            ThrowErrno("epoll");
        }
        return number;
    }
    void Change(std::uint64_t number, int fd, std::uint32_t events) {
        epoll_event event{events, {}};
        event.data.u64 = number;
        if (::epoll_ctl(m_epoll.Get(), EPOLL_CTL_MOD, fd, &event) != 0)
            ThrowErrno("epoll");
    }
    void Remove(std::uint64_t number, int fd) noexcept {
        m_interests.erase(number);
        (void)::epoll_ctl(m_epoll.Get(), EPOLL_CTL_DEL, fd, nullptr);
    }

    std::unordered_set<AtStop*>& Stops() noexcept { return m_atStop; }

private:
    void End() {
        asio::post(m_context, [this] {
            m_ended = true;
            m_stopping.reset();
            error_code ignored;
            m_ready.cancel(ignored);
            m_guard.reset();
        });
        m_thread.join();
    }

    void Run() {
        for (;;) {
            try {
                m_context.run();
                return;
            } catch (const std::exception& error) {
                LogFailure(error);
            }
        }
    }

    void Await() {
        m_ready.async_wait(asio::posix::descriptor_base::wait_read, [this](error_code error) {
            if (error || m_ended) // it may have been ready when it was cancelled
                return;
            try {
                Dispatch();
            } catch (const std::exception& failure) {
                LogFailure(failure);
            }
            Await();
        });
    }

    void Dispatch() {
        std::array<epoll_event, 64> events{};
        const int count = ::epoll_wait(m_epoll.Get(), events.data(), static_cast<int>(events.size()), 0);
        for (int i = 0; i < count; ++i) {
            const epoll_event& event = events[static_cast<std::size_t>(i)];
            const std::uint64_t number =
                event.data.u64; // a copy: the structure is packed, nothing may refer into it
            // One that an earlier one of these has ended is not there any more.
            const auto found = m_interests.find(number);
            if (found == m_interests.end())
                continue;
            const auto happened = found->second->m_happened; // which may end the interest
            happened(event.events);
        }
    }

    void StopAll() {
        m_stopping.reset();
        m_stops = true;
        while (!m_atStop.empty()) {
            const auto happened = (*m_atStop.begin())->m_happened;
            m_atStop.erase(m_atStop.begin());
            happened();
        }
    }

    const Wakeup& m_stop;
    const Descriptor m_epoll;
    asio::io_context m_context{1};
    asio::executor_work_guard<LoopExecutor> m_guard;
    asio::posix::basic_stream_descriptor<LoopExecutor> m_ready;
    std::unordered_map<std::uint64_t, Interest*> m_interests;
    std::uint64_t m_lastNumber = 0;
    std::unordered_set<AtStop*> m_atStop;
    std::unique_ptr<Interest> m_stopping;
    std::atomic<bool> m_stops{false};
    bool m_ended = false;
    std::thread m_thread;
};

EventLoop::EventLoop(std::size_t number, std::unique_ptr<Inside> inside)
    : m_number(number), m_inside(std::move(inside)) {
    m_inside->Start(*this);
}

EventLoop::~EventLoop() = default;

void EventLoop::Post(std::function<void()> work) {
    asio::post(Context(), std::move(work));
}

void EventLoop::Elsewhere(std::function<void()> work) {
    using Work = std::function<void()>;
    constexpr platform::WorkItem kRun = [](void* context) -> std::uint32_t {
        const std::unique_ptr<Work> taken(static_cast<Work*>(context));
        try {
            (*taken)();
        } catch (const std::exception& error) {
            LogFailure(error);
        }
        return 0;
    };
    Work* const given = new Work(std::move(work));
    // Without a thread for it, late is better than never.
    if (!platform::QueueUserWorkItem(kRun, given, platform::WT_EXECUTELONGFUNCTION))
        (void)kRun(given);
}

bool EventLoop::IsStopping() const noexcept {
    return m_inside->IsStopping();
}

asio::io_context& EventLoop::Context() noexcept {
    return m_inside->Context();
}

EventLoop::Interest::Interest(EventLoop& loop, int fd, std::uint32_t events,
                              std::function<void(std::uint32_t)> happened)
    : m_loop(*loop.m_inside), m_fd(fd), m_number(m_loop.Add(*this, fd, events)), m_events(events),
      m_happened(std::move(happened)) {}

EventLoop::Interest::~Interest() {
    m_loop.Remove(m_number, m_fd);
}

void EventLoop::Interest::Change(std::uint32_t events) {
    if (std::exchange(m_events, events) != events)
        m_loop.Change(m_number, m_fd, events);
}

EventLoop::AtStop::AtStop(EventLoop& loop, std::function<void()> happened)
    : m_loop(*loop.m_inside), m_happened(std::move(happened)) {
    m_loop.Stops().insert(this);
}

EventLoop::AtStop::~AtStop() {
    m_loop.Stops().erase(this);
}

struct EventLoop::Timer::Wait {
    explicit Wait(EventLoop& loop) : timer(loop.Context()) {}
    asio::basic_waitable_timer<Clock, asio::wait_traits<Clock>, LoopExecutor> timer;
    std::atomic<std::uint64_t> turn{0}; // of the newest call, or of the end
};

EventLoop::Timer::Timer(EventLoop& loop) : m_wait(std::make_shared<Wait>(loop)) {}

EventLoop::Timer::~Timer() { // NOLINT(bugprone-exception-escape)
    ++m_wait->turn;
    m_wait->timer.cancel();
}

void EventLoop::Timer::At(Clock::time_point when, std::function<void()> happened) {
    const std::uint64_t turn = ++m_wait->turn;
    m_wait->timer.expires_at(when);
    m_wait->timer.async_wait([wait = m_wait, turn, happened = std::move(happened)](error_code error) {
        if (!error && wait->turn == turn)
            happened();
    });
}

EventLoops::EventLoops(const Wakeup& stop) {
    const std::size_t count = std::max(1U, std::thread::hardware_concurrency());
    for (std::size_t number = 0; number < count; ++number)
        m_loops.push_back(
            std::unique_ptr<EventLoop>(new EventLoop(number, std::make_unique<EventLoop::Inside>(stop))));
}

EventLoops::~EventLoops() = default;

EventLoop& EventLoops::Choose() const noexcept {
    return **std::ranges::min_element(
        m_loops, {}, [](const auto& loop) { return loop->m_load.load(std::memory_order_relaxed); });
}

} // namespace host
