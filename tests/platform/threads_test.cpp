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

#include "platform/status.h"
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
    std::set<std::uint32_t> threads;
    for (const auto& [queuers, each] : {std::pair(4, 100), std::pair(1, 200)}) {
        Crowd crowd(queuers * each);
        {
            std::vector<std::jthread> all;
            for (int n = 0; n < queuers; ++n)
                all.emplace_back([&crowd, each = each] {
                    for (int m = 0; m < each; ++m)
                        ASSERT_TRUE(platform::QueueUserWorkItem(&Crowd::Join, &crowd,
                                                                platform::WT_EXECUTELONGFUNCTION));
                });
        }
        EXPECT_EQ(platform::RunningWorkItems(), static_cast<std::uint32_t>(queuers * each));
        EXPECT_FALSE(platform::WaitForWorkItems(1));
        crowd.everybody.arrive_and_wait(); // never ends unless all run at the same time
        ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
        if (threads.empty())
            threads = crowd.threads;
        EXPECT_TRUE(std::ranges::includes(threads, crowd.threads)) << "new threads beside idle ones";
    }
    EXPECT_EQ(threads.size(), 400U);
}

// An item works for the activity of whoever asked for it; the rest is as on a thread of its own.
TEST(WorkItemTest, AReusedThreadStartsLikeANewOne) {
    struct Owner : platform::Activity {
        explicit Owner(std::atomic<int>& gone) : gone(gone) {}
        ~Owner() override { ++gone; }
        std::atomic<int>& gone;
    };
    struct Seen {
        std::uint32_t thread, error, locale;
        unsigned page;
        const platform::Activity* activity;
    } seen[3] = {};
    const auto item = [](void* context) -> std::uint32_t {
        *static_cast<Seen*>(context) = {platform::CurrentThreadId(), platform::LastError(),
                                        platform::ThreadLocale(), platform::ThreadCodePage(),
                                        platform::ThreadActivity()};
        platform::SetLastError(platform::kErrorDiskFull);
        platform::SetThreadLocale(1033);
        platform::SetThreadCodePage(1251);
        return 0;
    };
    platform::SetLastError(5);
    platform::SetThreadLocale(1049);
    std::atomic<int> gone{0};
    const platform::Activity* mine = nullptr;
    {
        const auto owner = std::make_shared<Owner>(gone);
        mine = owner.get();
        const platform::ActivityScope scope(owner);
        ASSERT_TRUE(platform::StartThread(item, &seen[2], 0) && platform::WaitForWorkItems(kPatience));
        ASSERT_TRUE(platform::QueueUserWorkItem(item, &seen[0], 0));
    }
    ASSERT_TRUE(platform::WaitForWorkItems(kPatience));
    EXPECT_EQ(gone, 1) << "with the last of its work";
    ASSERT_TRUE(platform::QueueUserWorkItem(item, &seen[1], 0) && platform::WaitForWorkItems(kPatience));
    for (const Seen& s : seen) {
        EXPECT_EQ(s.error, platform::kErrorSuccess);
        EXPECT_EQ(s.locale, platform::kLocaleSystemDefault);
        EXPECT_EQ(s.page, platform::SystemCodePage());
        EXPECT_EQ(s.activity, &s == &seen[1] ? nullptr : mine);
    }
    EXPECT_EQ(seen[0].thread, seen[1].thread);
    EXPECT_TRUE(platform::LastError() == 5 && platform::ThreadLocale() == 1049) << "each thread has its own";
    EXPECT_EQ(platform::ThreadActivity(), nullptr);
}

TEST(StartThreadTest, GivesTheStackThatWasAskedFor) {
    std::size_t size = 0;
    const auto measure = [](void* bytes) -> std::uint32_t {
        pthread_attr_t attributes;
        ::pthread_getattr_np(::pthread_self(), &attributes);
        ::pthread_attr_getstacksize(&attributes, static_cast<std::size_t*>(bytes));
        ::pthread_attr_destroy(&attributes);
        return 0;
    };
    for (const std::size_t wanted : {std::size_t{0}, std::size_t{1}, std::size_t{3} << 20}) {
        ASSERT_TRUE(platform::StartThread(measure, &size, wanted) && platform::WaitForWorkItems(kPatience));
        EXPECT_GE(size, std::max(wanted, std::size_t{16384}));
    }
    EXPECT_FALSE(platform::StartThread(measure, &size, ~std::size_t{0}));
    EXPECT_EQ(platform::LastError(), platform::kErrorInvalidParameter);
    EXPECT_FALSE(platform::QueueUserWorkItem(nullptr, nullptr, 0));
    EXPECT_EQ(platform::RunningWorkItems(), 0U);
}

} // namespace
