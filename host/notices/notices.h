// Has a webhook and an MQTT broker told of each event, in their order, until each has taken it or the event
// is too old.
#pragma once

#include <array>
#include <chrono>
#include <cstdint>
#include <functional>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "host/events/event_log.h"
#include "host/notices/channel.h"
#include "host/preferences/store.h"

namespace host {

struct NoticeTimes {
    Clock::duration firstRetry = std::chrono::seconds(1); // twice as long each time
    Clock::duration longestRetry = std::chrono::minutes(5);
    // Of an event that was not taken: it is passed over then, and counted.
    std::chrono::hours tooOld{24};
    // Nothing was taken for so long, and somebody should know: an event of its own.
    Clock::duration trouble = std::chrono::minutes(1);
};

struct NoticeResult {
    std::chrono::sys_seconds time{};
    bool good = false;
    bool test = false;
    std::string text; // one line
};

struct NoticeState {
    bool on = false;
    std::uint64_t waiting = 0; // events that are still to be looked at
    std::uint64_t taken = 0;   // these since the start
    std::uint64_t refused = 0; // by the receiver, for good
    std::uint64_t tooOld = 0;
    std::uint64_t failures = 0; // tries that came to nothing
    std::optional<NoticeResult> last{};
};

// Tells one receiver. The events that wait are those of the journal behind the last one that was taken, whose
// number stands in a file: so they survive a restart, and their number is bounded as the journal is. An event
// may come twice when the host ends at the wrong moment.
//
// Owns a thread, which alone calls the channel. Thread-safe.
class NoticeLine {
public:
    using MakeChannel = std::function<std::unique_ptr<NoticeChannel>(const NoticeSignals&)>;

    // `name` is for people ("The webhook"). Both objects outlive this one.
    NoticeLine(std::string name, const MakeChannel& makeChannel, EventLog& events,
               const PreferenceStore& preferences, std::string file, const NoticeTimes& times = {});
    NoticeLine(const NoticeLine&) = delete;
    NoticeLine& operator=(const NoticeLine&) = delete;
    ~NoticeLine();

    // Other preferences hold.
    void Wake() noexcept { m_signals.wakeup.Signal(); }
    [[nodiscard]] NoticeState State() const;
    // Sends a test and waits for what comes of it. Nothing while nobody is to be told, or at the end.
    std::optional<NoticeResult> Test();

private:
    // On the line's thread.
    void Run();
    void SetUp();
    void SendTests();
    bool SendSome(); // false when there is nothing to send now
    void Pass(const Event& event, const NoticeOutcome& outcome);
    void Fail(const std::string& reason);
    void Remember(const NoticeOutcome& outcome, bool test);
    void SaveTaken();

    const std::string m_name;
    EventLog& m_events;
    const PreferenceStore& m_preferences;
    const std::string m_file;
    const NoticeTimes m_times;
    NoticeSignals m_signals;
    const std::unique_ptr<NoticeChannel> m_channel;
    const EventWatch m_watch;

    mutable std::mutex m_mutex; // the members below, up to the blank line
    NoticeState m_state;
    std::uint64_t m_taken = 0; // the number of the last event that was dealt with
    std::uint64_t m_testsAsked = 0;
    std::uint64_t m_testsDone = 0;
    std::optional<NoticeResult> m_testResult; // of the last of them
    bool m_ended = false;
    std::condition_variable m_testDone;

    // The thread's.
    std::shared_ptr<const Preferences> m_set;
    std::uint64_t m_saved = UINT64_MAX; // in the file
    Clock::time_point m_nextTry = Clock::time_point::min();
    Clock::duration m_retry;
    std::optional<Clock::time_point> m_failingSince;
    bool m_troubleTold = false;
    bool m_saveFailed = false;
    std::thread m_thread; // last: it uses all of the above
};

// Everybody who is told.
//
// Thread-safe. Whoever tells of an event waits for nobody here.
class Notices {
public:
    // Their words in the interface for programs.
    static constexpr std::array<std::string_view, 2> kNames{"webhook", "mqtt"};

    // The first two outlive the object. `folder` gets a small file for each: how far it has come.
    Notices(EventLog& events, PreferenceStore& preferences, const std::string& folder, NoticeAccess access);

    // Null for another word.
    [[nodiscard]] NoticeLine* Find(std::string_view name) noexcept;

private:
    NoticeLine m_webhook;
    NoticeLine m_mqtt;
};

} // namespace host
