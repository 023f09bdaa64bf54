// Lines on the console: the host's own, and those that the component writes through its log engine.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <string_view>
#include <utility>

#include "host/log/line_limiter.h"
#include "platform/text.h"
#include "platform/threads.h"

namespace host {

using platform::Printable;

// The reason of a refusal that a guesser of passwords gets.
inline constexpr std::string_view kWrongPassword = "wrong password";

enum class Verbosity {
    Quiet,   // what went wrong
    Normal,  // and what phones do
    Verbose, // and every channel, with the place that a line comes from
};

// Set as the activity of the thread that takes a connection, it stands behind each line of every thread that
// works for that connection, those of the component included.
class LogSubject : public platform::Activity {
public:
    explicit LogSubject(std::string text) : m_text(std::move(text)) {}

    [[nodiscard]] const std::string& Text() const noexcept { return m_text; }
    // Of the calling thread; null without one.
    static const LogSubject* OfThread() noexcept {
        return dynamic_cast<const LogSubject*>(platform::ThreadActivity());
    }

private:
    const std::string m_text; // "yard, 192.0.2.7"
};

// One whole line at a time, from any thread.
class Console {
public:
    // Writes to standard output: what the person who started the host wants to know.
    void Say(std::string_view line);
    // Writes a log line to standard error: local time, channel and text, or as the journal reads it. What the
    // thread works for (LogSubject) stands behind it. Equal lines are written once a second, with their
    // count.
    void Log(std::string_view channel, std::string_view text);
    // Somebody was turned away: a line a second at most for each address, which begins with it. `whom` tells
    // one address from another, and need not be readable. Login and camera stand there where they are not
    // empty. packaging/fail2ban reads these lines.
    struct Refusal {
        std::string_view address;
        std::string_view whom;
        std::string_view login;
        std::string_view camera;
        std::string_view reason;
    };
    void Refuse(const Refusal& refusal);
    // Who is told of each refusal, also those that the log holds back. Called from any thread; null: nobody,
    // and no call is under way any more.
    using RefusalListener = std::function<void(const Refusal&)>;
    void SetRefusalListener(RefusalListener listener);

    // Writes the counts of lines that were held back, as far as they are due: a few times a second.
    void Tick();
    // And all of them, at the end.
    void Flush();

    void SetVerbosity(Verbosity verbosity) noexcept { m_verbosity = verbosity; }
    [[nodiscard]] Verbosity HowVerbose() const noexcept { return m_verbosity; }
    // Whether lines of a channel are written at all.
    [[nodiscard]] bool Shows(std::string_view channel) const noexcept;

    static Console& Get();

private:
    Console();
    ~Console() { Flush(); }
    void Limit(const std::string& key, std::string_view channel, std::string_view text);
    void WriteLogLine(const std::string& channel, const std::string& text); // with m_mutex held
    static void Write(int fd, std::string_view line);                       // with m_mutex held

    const bool m_journal;
    std::atomic<Verbosity> m_verbosity{Verbosity::Normal};
    std::mutex m_mutex; // one line at a time, and what is below
    LineLimiter m_limiter;
    std::mutex m_listenerMutex; // what is below
    RefusalListener m_listener;
};

// Has the component's lines written to the console. Once, before the component is created.
void ShowComponentLines();

} // namespace host
