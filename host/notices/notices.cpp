#include "host/notices/notices.h"

#include <algorithm>
#include <charconv>
#include <utility>

#include <nlohmann/json.hpp>

#include "host/log/console.h"
#include "platform/files.h"

namespace host {
namespace {

// As many as are looked at before the place among them is written down.
constexpr std::size_t kBatch = 64;
// How long somebody who asks for a test waits; a channel's own deadlines are shorter.
constexpr std::chrono::seconds kTestDeadline{40};

// Nothing for a file that is not there, or says something else.
std::optional<std::uint64_t> NumberInFile(const std::string& file) {
    std::string text = platform::ReadWholeFile(file, 64).value_or("");
    while (text.ends_with('\n'))
        text.pop_back();
    std::uint64_t number = 0;
    const auto [end, error] = std::from_chars(text.data(), text.data() + text.size(), number);
    const bool whole = !text.empty() && error == std::errc{} && end == text.data() + text.size();
    return whole ? std::optional(number) : std::nullopt;
}

Notice NoticeOf(const Event& event) {
    return {event.number, std::string(WordOf(event.kind)), event.camera, AsJson(event).dump()};
}

Notice TestNotice() {
    const auto now = std::chrono::floor<std::chrono::milliseconds>(std::chrono::system_clock::now());
    Event event;
    event.time = now;
    event.text = "This is a test.";
    auto json = AsJson(event);
    json["kind"] = "test";
    return {0, "test", {}, json.dump()};
}

} // namespace

NoticeLine::NoticeLine(std::string name, const MakeChannel& makeChannel, EventLog& events,
                       const PreferenceStore& preferences, std::string file, const NoticeTimes& times)
    : m_name(std::move(name)), m_events(events), m_preferences(preferences), m_file(std::move(file)),
      m_times(times), m_channel(makeChannel(m_signals)), m_watch(events, m_signals.wakeup),
      m_retry(times.firstRetry), m_thread([this] { Run(); }) {}

NoticeLine::~NoticeLine() {
    m_signals.stop.Signal();
    m_thread.join();
}

NoticeState NoticeLine::State() const {
    const std::uint64_t last = m_events.LastNumber();
    const std::lock_guard guard(m_mutex);
    NoticeState state = m_state;
    state.waiting = state.on && last > m_taken ? last - m_taken : 0;
    return state;
}

std::optional<NoticeResult> NoticeLine::Test() {
    std::unique_lock lock(m_mutex);
    if (m_ended || !m_state.on)
        return std::nullopt;
    const std::uint64_t mine = ++m_testsAsked;
    m_signals.wakeup.Signal();
    const bool done =
        m_testDone.wait_for(lock, kTestDeadline, [&] { return m_ended || m_testsDone >= mine; });
    return done && m_testsDone >= mine ? m_testResult : std::nullopt;
}

void NoticeLine::Run() {
    while (!m_signals.stop.IsSet()) {
        m_signals.wakeup.Clear();
        SetUp();
        SendTests();
        if (SendSome())
            continue;
        // The next try may be due by now.
        m_channel->Rest(m_failingSince ? m_nextTry : Clock::now() + std::chrono::hours(1));
    }
    SaveTaken();
    const std::lock_guard guard(m_mutex);
    m_ended = true;
    m_testDone.notify_all();
}

void NoticeLine::SetUp() {
    const auto now = m_preferences.Now();
    if (now == m_set)
        return;
    const bool first = m_set == nullptr;
    m_set = now;
    const bool on = m_channel->SetUp(*now);
    const std::uint64_t last = m_events.LastNumber();
    const auto saved = first && on ? NumberInFile(m_file) : std::nullopt;
    {
        const std::lock_guard guard(m_mutex);
        // What was before somebody wanted to be told is nothing new. A journal that has lost its end begins
        // again with numbers that were taken already.
        if (!m_state.on)
            m_taken = std::min(saved.value_or(last), last);
        m_state.on = on;
    }
    m_failingSince.reset();
    m_troubleTold = false;
    m_retry = m_times.firstRetry;
    m_nextTry = Clock::time_point::min();
    if (on)
        SaveTaken();
    else if (platform::StampOf(m_file) != platform::FileStamp{})
        (void)platform::RemoveFile(m_file);
}

void NoticeLine::SendTests() {
    std::uint64_t asked = 0;
    bool on = false;
    {
        const std::lock_guard guard(m_mutex);
        asked = m_testsAsked;
        on = m_state.on;
        if (asked == m_testsDone)
            return;
    }
    // One for all who ask at the same time.
    const NoticeOutcome outcome = on ? m_channel->Send(TestNotice())
                                     : NoticeOutcome{NoticeOutcome::Result::Failed, "Nobody is to be told."};
    Remember(outcome, true);
    if (outcome.result == NoticeOutcome::Result::Taken)
        m_nextTry = Clock::time_point::min(); // and so may be what waits
    const std::lock_guard guard(m_mutex);
    m_testsDone = asked;
    m_testResult = m_state.last;
    m_testDone.notify_all();
}

bool NoticeLine::SendSome() {
    std::uint64_t taken = 0;
    {
        const std::lock_guard guard(m_mutex);
        if (!m_state.on)
            return false;
        taken = m_taken;
    }
    if (Clock::now() < m_nextTry)
        return false;
    const auto events = m_events.After(taken, kBatch);
    if (events.empty())
        m_failingSince.reset(); // what failed has been passed over
    const auto oldest = std::chrono::system_clock::now() - m_times.tooOld;
    bool dealtWith = false;
    for (const EventPtr& event : events) {
        if (m_signals.stop.IsSet() || m_signals.wakeup.IsSet())
            break; // something else may come first; this goes on behind it
        const Notice notice = NoticeOf(*event);
        if (!m_channel->Wants(notice.kind)) {
            const std::lock_guard guard(m_mutex);
            m_taken = event->number;
            continue;
        }
        if (event->time < oldest) {
            const std::lock_guard guard(m_mutex);
            m_taken = event->number;
            ++m_state.tooOld;
            dealtWith = true;
            continue;
        }
        NoticeOutcome outcome = m_channel->Send(notice);
        if (m_signals.stop.IsSet() && outcome.result == NoticeOutcome::Result::Failed)
            break;
        if (outcome.result == NoticeOutcome::Result::Failed) {
            Remember(outcome, false);
            Fail(outcome.text);
            break;
        }
        Pass(*event, outcome);
        dealtWith = true;
    }
    // Those that nobody wants are looked at again after a crash, and cost no write.
    if (dealtWith)
        SaveTaken();
    return !events.empty() && Clock::now() >= m_nextTry;
}

void NoticeLine::Pass(const Event& event, const NoticeOutcome& outcome) {
    const bool taken = outcome.result == NoticeOutcome::Result::Taken;
    if (!taken)
        Console::Get().Log("error",
                           m_name + " refuses event " + std::to_string(event.number) + ": " + outcome.text);
    Remember(outcome, false);
    {
        const std::lock_guard guard(m_mutex);
        m_taken = event.number;
        ++(taken ? m_state.taken : m_state.refused);
    }
    if (m_troubleTold)
        Console::Get().Log("message", m_name + " takes events again");
    m_failingSince.reset();
    m_troubleTold = false;
    m_retry = m_times.firstRetry;
}

void NoticeLine::Fail(const std::string& reason) {
    const auto now = Clock::now();
    if (!m_failingSince)
        m_failingSince = now;
    {
        const std::lock_guard guard(m_mutex);
        ++m_state.failures;
    }
    if (!m_troubleTold && now - *m_failingSince >= m_times.trouble) {
        m_troubleTold = true;
        Console::Get().Log("error", m_name + " takes no events: " + reason);
        m_events.Tell({.kind = EventKind::NoticeTrouble, .text = m_name + " takes no events: " + reason});
    }
    m_nextTry = now + m_retry;
    m_retry = std::min(2 * m_retry, m_times.longestRetry);
}

void NoticeLine::Remember(const NoticeOutcome& outcome, bool test) {
    const auto now = std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now());
    const std::lock_guard guard(m_mutex);
    m_state.last = {now, outcome.result == NoticeOutcome::Result::Taken, test, outcome.text};
}

void NoticeLine::SaveTaken() {
    std::uint64_t taken = 0;
    {
        const std::lock_guard guard(m_mutex);
        if (!m_state.on || m_taken == m_saved)
            return;
        taken = m_taken;
    }
    const bool saved = SUCCEEDED(platform::ReplaceFile(m_file, std::to_string(taken) + "\n", 0600));
    if (saved)
        m_saved = taken;
    else if (!std::exchange(m_saveFailed, true))
        Console::Get().Log("error", "cannot write " + m_file + ": events may be told again after a restart");
    m_saveFailed = !saved;
}

Notices::Notices(EventLog& events, PreferenceStore& preferences, const std::string& folder,
                 NoticeAccess access)
    : m_webhook("The webhook", MakeWebhook, events, preferences, folder + "/webhook-told"),
      m_mqtt(
          "The MQTT broker",
          [&](const NoticeSignals& signals) { return MakeMqtt(signals, std::move(access)); }, events,
          preferences, folder + "/mqtt-told") {
    // The lines end with the object, and the store calls nobody then: it is changed by requests alone.
    preferences.Listen([this](const Preferences&, const Preferences&) {
        m_webhook.Wake();
        m_mqtt.Wake();
    });
}

NoticeLine* Notices::Find(std::string_view name) noexcept {
    return name == kNames[0] ? &m_webhook : name == kNames[1] ? &m_mqtt : nullptr;
}

} // namespace host
