// What is told, kept and found again, over starts, crashes, full disks and clocks that are set.

#include <gtest/gtest.h>

#include <atomic>
#include <fstream>
#include <memory>
#include <thread>
#include <vector>

#include <nlohmann/json.hpp>
#include <sys/stat.h>

#include "host/events/event_log.h"
#include "host/events/refusal_events.h"
#include "host/feed/connection_events.h"
#include "host/notices/notices.h"
#include "platform/configdoc/configdoc.h"
#include "platform/files.h"
#include "support/Wait.h"
#include "support/temp_folder.h"

namespace host {
namespace {

using namespace std::chrono_literals;

constexpr Event::Time kNoon{std::chrono::sys_days(std::chrono::year(2026) / 3 / 28) + 12h};

std::vector<std::uint64_t> NumbersOf(const std::vector<EventPtr>& events) {
    std::vector<std::uint64_t> numbers;
    for (const EventPtr& event : events)
        numbers.push_back(event->number);
    return numbers;
}

using Numbers = std::vector<std::uint64_t>;

TEST(EventLog, FindsWhatWasToldAlsoAfterACrashAndWithClocksThatAreSet) {
    const TempFolder folder;
    const std::string journal = folder.File("recordings/events");
    {
        EventLog log(journal);
        log.Tell({.time = kNoon, .kind = EventKind::CameraConnected, .camera = "yard"});
        log.Tell({.time = kNoon + 24h, .kind = EventKind::CameraLost, .camera = "yard", .text = "gone"});
        // Set back by a day.
        log.Tell({.time = kNoon + 1h,
                  .kind = EventKind::MotionBegan,
                  .camera = "Двор \"1\"\n",
                  .details = {{"cells", "7"}}});
        log.Tell({.time = kNoon + 2h, .kind = EventKind::SignInRefused, .who = "\xFF"});
    }
    struct stat status {};
    ASSERT_EQ(::stat((journal + "/2026-03-28.jsonl").c_str(), &status), 0);
    EXPECT_EQ(status.st_mode & 0777U, 0600U);
    // A crash, and somebody who writes there.
    std::ofstream(journal + "/2026-03-28.jsonl", std::ios::app)
        << "{\"number\":0,\"ms\":1,\"kind\":\"camera-lost\"}\n[]\n{\"number\":99,\"ms\":1,\"kind\":\"unheard-"
           "of\"}\n{\"number\":5,\"ms\":177";
    std::ofstream(journal + "/2026-13-01.jsonl") << "no day";
    EventLog log(journal);
    EXPECT_EQ(log.LastNumber(), 4U);
    log.Tell({.time = kNoon + 3h, .kind = EventKind::MotionEnded, .camera = "Двор \"1\"\n"});
    const auto is = [](std::initializer_list<EventKind> kinds) {
        EventFilter filter;
        filter.kinds = kinds;
        return filter;
    };
    EventFilter camera, time, before, rights;
    camera.camera = "Двор \"1\"\n";
    time.from = kNoon + 1h;
    time.to = kNoon + 3h;
    before.before = 4;
    rights.sees = [](const Event& event) { return event.camera.empty() || event.camera == "yard"; };
    const std::pair<EventFilter, Numbers> cases[] = {
        {{}, {5, 4, 3, 2, 1}}, {is({EventKind::CameraLost, EventKind::MotionBegan}), {3, 2}},
        {camera, {5, 3}},      {time, {4, 3}},
        {before, {3, 2, 1}},   {rights, {4, 2, 1}}};
    // Once of the memory's, and once of the files alone.
    const EventJournal files = [&] {
        EXPECT_TRUE(support::Eventually([&] { return EventJournal(journal).LastNumber() == 5; }));
        return EventJournal(journal);
    }();
    for (const auto& [filter, numbers] : cases) {
        EXPECT_EQ(NumbersOf(log.Find(filter, 100)), numbers);
        EXPECT_EQ(NumbersOf(files.Newest(filter, 100)), numbers);
        EXPECT_EQ(NumbersOf(files.Newest(filter, 2)), Numbers(numbers.begin(), numbers.begin() + 2));
    }
    EXPECT_EQ(NumbersOf(files.After(1, 3)), (Numbers{2, 3, 4}));
    EXPECT_EQ(NumbersOf(log.After(3, 9)), (Numbers{4, 5}));
    const EventPtr motion = files.After(2, 1).at(0);
    EXPECT_EQ(AsJson(*motion).dump(),
              R"({"number":3,"ms":1774702800000,"time":"2026-03-28T13:00:00.000Z","kind":"motion-began",)"
              R"("camera":"Двор \"1\"\n","who":"","text":"","details":{"cells":"7"}})");
    EXPECT_EQ(files.After(3, 1).at(0)->who, "\xEF\xBF\xBD");
}

TEST(EventLog, KeepsDaysAndWaitsForADiskThatTakesNothing) {
    const TempFolder folder;
    const std::string journal = folder.File("events");
    const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    {
        EventLog log(journal);
        for (const auto age : {10 * 24h, 8 * 24h, 6 * 24h, 0h})
            log.Tell({.time = now - age, .kind = EventKind::CameraLost});
        // More than memory holds, and than a day may have: the rest of the day is not kept.
        const std::string text(5000, 'x');
        for (int i = 0; i < 4; ++i)
            log.Tell({.time = now, .kind = EventKind::CameraLost, .camera = text, .who = text, .text = text});
    }
    {
        EventLog log(journal);
        EXPECT_EQ(log.Find({}, 99).size(), 8U) << "nothing goes before it is known what shall stay";
        log.KeepFrom(std::chrono::floor<std::chrono::days>(now) - std::chrono::days(7));
        EXPECT_TRUE(support::Eventually([&] { return EventJournal(journal).After(0, 99).size() == 6; }));
        EXPECT_EQ(NumbersOf(log.Find({}, 99)), (Numbers{8, 7, 6, 5, 4, 3}))
            << "and those swept are gone from memory as well";
    }
    // Something else stands in the folder's place.
    const std::string taken = folder.File("taken");
    ASSERT_EQ(platform::ReplaceFile(taken, "x"), S_OK);
    {
        EventLog log(taken + "/events");
        for (std::size_t i = 0; i < EventLog::kNewest + 5; ++i)
            log.Tell({.kind = EventKind::CameraLost});
        EXPECT_EQ(log.Find({}, 9999).size(), EventLog::kNewest);
        EXPECT_EQ(log.After(0, 9999).size(), EventLog::kNewest) << "what is lost is passed over";
    }
    // A day has its limit.
    EventJournal full(folder.File("full"));
    const std::vector<EventPtr> events(
        1000, std::make_shared<const Event>(Event{.number = 1, .time = now, .text = std::string(9000, 'x')}));
    std::size_t count = 0;
    EXPECT_EQ(full.Append(events, &count), EventJournal::Written::All);
    EXPECT_EQ(full.Append(events, &count), EventJournal::Written::DayFull);
    EXPECT_EQ(count, events.size());
}

TEST(EventLog, WakesWatchersAndNumbersWhatManyTell) {
    const TempFolder folder;
    EventLog log(folder.File("events"));
    Wakeup wakeup;
    std::vector<EventPtr> seen;
    {
        const EventWatch watch(log, wakeup);
        std::vector<std::jthread> tellers;
        for (int i = 0; i < 4; ++i)
            tellers.emplace_back([&log] {
                for (int k = 0; k < 100; ++k)
                    log.Tell({.kind = EventKind::MotionBegan});
            });
        while (seen.size() < 400 && WaitFor({.wakeup = &wakeup}, Clock::now() + 20s) == Waited::Woken) {
            wakeup.Clear();
            const auto news = log.After(seen.size(), 30);
            seen.insert(seen.end(), news.begin(), news.end());
            if (news.size() == 30)
                wakeup.Signal();
        }
    }
    ASSERT_EQ(seen.size(), 400U);
    for (std::size_t i = 0; i < seen.size(); ++i)
        EXPECT_EQ(seen[i]->number, i + 1);
    wakeup.Clear();
    log.Tell({.kind = EventKind::MotionEnded});
    EXPECT_FALSE(wakeup.IsSet());
}

TEST(RefusalEvents, TellOfGuessersOnceAMinute) {
    const TempFolder folder;
    EventLog log(folder.File("events"));
    RefusalEvents refusals(log);
    const auto t = Clock::now();
    const auto refuse = [&](const std::string& address, std::string_view reason, Clock::duration at) {
        refusals.Note({.address = address, .whom = address, .login = "root", .camera = {}, .reason = reason},
                      t + at);
        refusals.Tick(t + at);
    };
    refuse("192.0.2.1", "forbidden", 0s);
    for (int i = 0; i < 50; ++i)
        refuse("192.0.2.1", kWrongPassword, i * 1s);
    refuse("192.0.2.2", kWrongPassword, 50s);
    refusals.Tick(t + 59s);
    EXPECT_EQ(log.LastNumber(), 2U);
    refusals.Tick(t + 61s);
    EXPECT_EQ(log.LastNumber(), 3U);
    EXPECT_EQ(log.After(2, 1).at(0)->text, "49 more wrong passwords came from 192.0.2.1.");
    // From everywhere.
    for (int i = 0; i < 3000; ++i)
        refuse(std::to_string(i), kWrongPassword, 70s);
    refusals.Tick(t + 131s);
    EXPECT_LT(log.LastNumber(), 2 * RefusalEvents::kMostAddresses);
    for (int i = 0; i < 5; ++i)
        refusals.Tick(t + 200s + i * 61s);
    std::size_t count = 0;
    for (const EventPtr& event : log.Find({}, 9999))
        count += event->details.contains("count") ? std::stoul(event->details.at("count")) : 1;
    EXPECT_EQ(count, 50U + 1 + 3000) << "none is lost";
}

TEST(ConnectionStory, TellsWhatLastsAndNotEachGap) {
    // Seconds on and off in turn; what is told, and when.
    struct Case {
        std::vector<int> spans; // on, off, on ...
        std::string told;
    };
    const Case cases[] = {
        {{100}, "+0"},
        {{100, 29, 100, 29, 100}, "+0"},
        {{100, 31, 100}, "+0 -130 +136"},
        {{100, 31, 4, 31, 4, 31, 100}, "+0 -130 +206"},
        // Twice as long each time.
        {{100, 59, 60, 59, 60, 61, 100}, "+0 -130 +164 -398 +404"},
        {{0, 100, 50}, "+100"},
    };
    for (const Case& each : cases) {
        ConnectionStory story;
        std::string told;
        bool on = true;
        int second = 0;
        for (const int span : each.spans) {
            for (int i = 0; i < span; ++i, ++second) {
                if (const auto news = story.Look(on, Clock::time_point(std::chrono::seconds(second))))
                    told +=
                        (told.empty() ? "" : " ") + std::string(*news ? "+" : "-") + std::to_string(second);
            }
            on = !on;
        }
        EXPECT_EQ(told, each.told);
    }
    // One that comes and goes every minute for two hours.
    ConnectionStory story;
    int losses = 0;
    for (int second = 0; second < 7200; ++second)
        losses +=
            story.Look(second % 60 < 25, Clock::time_point(std::chrono::seconds(second))) == false ? 1 : 0;
    EXPECT_LE(losses, 2);
    EXPECT_GE(losses, 1);
}

// Takes nothing until it is told to.
class StubbornChannel final : public NoticeChannel {
public:
    struct Knowledge {
        std::atomic<bool> takes{false};
        std::vector<Clock::time_point> tries; // the line's, while there is one
    };
    StubbornChannel(const NoticeSignals& signals, Knowledge& knowledge)
        : m_signals(signals), m_knowledge(knowledge) {}
    bool SetUp(const Preferences& /*preferences*/) override { return true; }
    bool Wants(const std::string& kind) const override { return kind == "camera-lost"; }
    NoticeOutcome Send(const Notice& /*notice*/) override {
        m_knowledge.tries.push_back(Clock::now());
        return {m_knowledge.takes ? NoticeOutcome::Result::Taken : NoticeOutcome::Result::Failed, "no"};
    }
    void Rest(Clock::time_point until) override {
        (void)WaitFor({.wakeup = &m_signals.wakeup, .stop = &m_signals.stop}, until);
    }

private:
    const NoticeSignals& m_signals;
    Knowledge& m_knowledge;
};

TEST(NoticeLine, TriesLessAndLessOftenAndSaysOnceThatItIsInTrouble) {
    ASSERT_EQ(S_OK, platform::RegisterConfigDocumentClass());
    const TempFolder folder;
    EventLog log(folder.File("events"));
    const PreferenceStore preferences(folder.File("Preferences.xml"));
    StubbornChannel::Knowledge knowledge;
    {
        NoticeLine line("The program",
                        [&](const NoticeSignals& signals) {
                            return std::make_unique<StubbornChannel>(signals, knowledge);
                        },
                        log, preferences, folder.File("told"),
                        {.firstRetry = 20ms, .longestRetry = 160ms, .trouble = 100ms});
        ASSERT_TRUE(support::Eventually([&] { return line.State().on; }));
        log.Tell({.kind = EventKind::CameraLost});
        ASSERT_TRUE(support::Eventually([&] { return line.State().failures >= 6; }));
        knowledge.takes = true;
        ASSERT_TRUE(support::Eventually([&] { return line.State().taken == 1; }));
    }
    for (std::size_t i = 0; i + 1 < std::min<std::size_t>(knowledge.tries.size(), 6); ++i)
        EXPECT_GE(knowledge.tries[i + 1] - knowledge.tries[i], std::min(20ms * (1 << i), 160ms)) << i;
    const auto told = log.After(1, 99);
    ASSERT_EQ(told.size(), 1U);
    EXPECT_EQ(told[0]->text, "The program takes no events: no");
}

} // namespace
} // namespace host
