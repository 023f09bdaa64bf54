#include "platform/threads.h"

#include <gtest/gtest.h>
#include <pthread.h>

#include <algorithm>
#include <atomic>
#include <latch>
#include <mutex>
#include <set>
#include <thread>
#include <vector>

#include "platform/activity.h"
#include "platform/com.h"
#include "platform/status.h"
#include "platform/sync.h"
#include "platform/text.h"

namespace {

constexpr std::uint32_t kPatience = 60000; // ms

struct Crowd {
    explicit Crowd(int size) : everybody(size + 1) {}

    static std::uint32_t Join(void* context) {
        auto& crowd = *static_cast<Crowd*>(context);
        {
            const std::scoped_lock guard(crowd.mutex);
            crowd.threads.insert(platform::CurrentThreadId());
        }
        crowd.everybody.arrive_and_wait();
        return 0;
    }

    std::latch everybody;
    std::mutex mutex;
    std::set<std::uint32_t> threads; // under mutex
};

TEST(WorkItemTest, HundredsRunAtOnceAndTheirThreadsAreReused) {
    constexpr int kItems = 400;
    Crowd first(kItems);
    for (int n = 0; n < kItems; ++n)
        ASSERT_TRUE(platform::QueueUserWorkItem(&Crowd::Join, &first, platform::WT_EXECUTELONGFUNCTION));
    EXPECT_EQ(platform::RunningWorkItems(), std::uint32_t{kItems});
    EXPECT_FALSE(platform::WaitForWorkItems(1));
    first.everybody.arrive_and_wait(); // never ends unless all run at the same time
    ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
    EXPECT_EQ(first.threads.size(), std::size_t{kItems});

    Crowd second(kItems / 2);
    for (int n = 0; n < kItems / 2; ++n)
        ASSERT_TRUE(platform::QueueUserWorkItem(&Crowd::Join, &second, platform::WT_EXECUTELONGFUNCTION));
    second.everybody.arrive_and_wait();
    ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
    EXPECT_TRUE(std::ranges::includes(first.threads, second.threads)) << "new threads beside idle ones";
}

TEST(WorkItemTest, QueuedFromManyThreadsEachRunsOnce) {
    constexpr int kThreads = 4;
    constexpr int kItems = 500;
    std::atomic<int> runs{0};
    {
        std::vector<std::jthread> threads;
        for (int n = 0; n < kThreads; ++n) {
            threads.emplace_back([&] {
                for (int m = 0; m < kItems; ++m) {
                    const auto count = [](void* context) -> std::uint32_t {
                        ++*static_cast<std::atomic<int>*>(context);
                        return 0;
                    };
                    ASSERT_TRUE(platform::QueueUserWorkItem(count, &runs, 0));
                }
            });
        }
    }
    ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
    EXPECT_EQ(runs, kThreads * kItems);
}

TEST(WorkItemTest, WorksForTheActivityOfWhoeverAskedForIt) {
    struct Owner : platform::Activity {
        explicit Owner(std::atomic<int>& gone) : gone(gone) {}
        ~Owner() override { ++gone; }
        std::atomic<int>& gone;
    };
    std::atomic<int> gone{0};
    const auto look = [](void* seen) -> std::uint32_t {
        *static_cast<const platform::Activity**>(seen) = platform::ThreadActivity();
        return 0;
    };
    const platform::Activity* seen[3] = {};
    const platform::Activity* mine = nullptr;
    {
        const auto owner = std::make_shared<Owner>(gone);
        mine = owner.get();
        const platform::ActivityScope scope(owner);
        ASSERT_TRUE(platform::QueueUserWorkItem(look, &seen[0], 0));
        ASSERT_TRUE(platform::StartThread(look, &seen[1], 0));
    }
    EXPECT_EQ(platform::ThreadActivity(), nullptr);
    ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
    EXPECT_EQ(gone, 1) << "with the last of its work";
    ASSERT_TRUE(platform::QueueUserWorkItem(look, &seen[2], 0)); // by the same thread
    ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
    EXPECT_TRUE(seen[0] == mine && seen[1] == mine && seen[2] == nullptr);
}

TEST(WorkItemTest, AReusedThreadStartsLikeANewOne) {
    struct Seen {
        std::uint32_t thread, error;
        unsigned page;
    } seen[2] = {};
    const auto item = [](void* context) -> std::uint32_t {
        *static_cast<Seen*>(context) = {platform::CurrentThreadId(), platform::LastError(),
                                        platform::ThreadCodePage()};
        platform::SetLastError(platform::kErrorDiskFull);
        platform::SetThreadCodePage(1251);
        return 0;
    };
    for (Seen& s : seen) {
        ASSERT_TRUE(platform::QueueUserWorkItem(item, &s, 0));
        ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
        EXPECT_EQ(s.error, platform::kErrorSuccess);
        EXPECT_EQ(s.page, platform::SystemCodePage());
    }
    EXPECT_EQ(seen[0].thread, seen[1].thread);
}

TEST(StartThreadTest, GivesTheStackThatWasAskedFor) {
    static std::atomic<std::size_t> size;
    const auto measure = [](void*) -> std::uint32_t {
        pthread_attr_t attributes;
        std::size_t bytes = 0;
        ::pthread_getattr_np(::pthread_self(), &attributes);
        ::pthread_attr_getstacksize(&attributes, &bytes);
        ::pthread_attr_destroy(&attributes);
        size = bytes;
        return 0;
    };
    for (const std::size_t wanted : {std::size_t{0}, std::size_t{1}, std::size_t{3} << 20}) {
        ASSERT_TRUE(platform::StartThread(measure, nullptr, wanted));
        ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
        EXPECT_GE(size, std::max(wanted, std::size_t{16384}));
    }
    EXPECT_FALSE(platform::StartThread(measure, nullptr, ~std::size_t{0}));
    EXPECT_EQ(platform::LastError(), platform::kErrorInvalidParameter);
    EXPECT_FALSE(platform::QueueUserWorkItem(nullptr, nullptr, 0));
    EXPECT_EQ(platform::RunningWorkItems(), 0U);
}

class Counted : public IUnknown {
public:
    static inline std::atomic<int> alive{0};
    Counted() { ++alive; }
    HRESULT Query(const GUID& id, void** object) { return platform::QueryTable<IUnknown>(this, id, object); }

protected:
    ~Counted() { --alive; }
};

TEST(RefCountTest, ManyThreadsAndOneEnd) {
    auto object = platform::ComObject<Counted>::Create();
    std::latch start(8);
    std::vector<std::jthread> threads;
    for (int n = 0; n < 8; ++n) {
        threads.emplace_back([&start, own = platform::ComPtr<IUnknown>(object)]() mutable {
            start.arrive_and_wait();
            for (int m = 0; m < 5000; ++m) {
                const auto copy = own;
                ASSERT_EQ(copy.Query<IUnknown>().Get(), own.Get());
            }
            own = nullptr;
        });
    }
    object = nullptr; // the last thread to leave ends it
    threads.clear();
    EXPECT_EQ(Counted::alive, 0);
}

TEST(CriticalSectionTest, IsReentrantAndExclusive) {
    platform::CriticalSection section(100);
    int count = 0;
    {
        std::vector<std::jthread> threads;
        for (int n = 0; n < 4; ++n) {
            threads.emplace_back([&] {
                for (int m = 0; m < 2000; ++m) {
                    const platform::SectionGuard outer(section);
                    const platform::SectionGuard inner(section);
                    ++count;
                }
            });
        }
    }
    EXPECT_EQ(count, 8000);
}

} // namespace
