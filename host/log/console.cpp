#include "host/log/console.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <ctime>

#include <sys/stat.h>
#include <unistd.h>

namespace host {
namespace {

constexpr std::string_view kRefusedChannel = "refused";

// Whether what is written there goes straight into the journal of systemd: JOURNAL_STREAM names the device
// and the inode of the stream that a service was started with.
bool IsJournal(int fd) noexcept {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    unsigned long long device = 0;
    unsigned long long inode = 0;
    int read = 0;
    // Inherited by every program that a service starts, so the stream may be another one by now.
    struct stat status {};
    return stream != nullptr && std::sscanf(stream, "%llu:%llu%n", &device, &inode, &read) == 2 &&
           stream[read] == '\0' && ::fstat(fd, &status) == 0 && status.st_dev == device &&
           status.st_ino == inode;
}

// The level of a log line, as the journal's numbers go (syslog(3)): what an operator should look at, by
// channel. A condition of the component that did not hold (TRASSDO) is a notice, since every phone that
// leaves makes some; rates and other figures are for debugging.
int LevelOf(std::string_view channel) noexcept {
    constexpr int kError = 3;
    constexpr int kWarning = 4;
    constexpr int kNotice = 5;
    constexpr int kInfo = 6;
    constexpr int kDebug = 7;
    if (channel == "error")
        return kError;
    if (channel == kRefusedChannel)
        return kWarning;
    if (channel == "TRASSDO")
        return kNotice;
    return channel == "FPS" ? kDebug : kInfo;
}

std::string LocalTime() {
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 40> time{};
    std::snprintf(time.data(), time.size(), "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(milliseconds));
    return time.data();
}

} // namespace

Console::Console()
    : m_journal(IsJournal(STDERR_FILENO)),
      m_limiter(
          [this](const std::string& channel, const std::string& text) { WriteLogLine(channel, text); }) {}

void Console::Say(std::string_view line) {
    const std::lock_guard guard(m_mutex);
    Write(STDOUT_FILENO, std::string(line) + "\n");
}

bool Console::Shows(std::string_view channel) const noexcept {
    const Verbosity verbosity = m_verbosity;
    // Rates stand in the status line.
    if (channel == "FPS")
        return verbosity == Verbosity::Verbose;
    return verbosity != Verbosity::Quiet || channel != "mobile";
}

void Console::Log(std::string_view channel, std::string_view text) {
    if (!Shows(channel))
        return;
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    std::string line = Printable(text);
    if (const LogSubject* const subject = LogSubject::OfThread())
        line += "  (" + Printable(subject->Text()) + ")";
    Limit(std::string(channel) + '\n' + line, channel, line);
}

void Console::Refuse(const Refusal& refusal) {
    std::string line(refusal.address);
    // The address comes first and cannot be forged. Quotes within a name are no end of it to anybody who
    // reads from the front.
    for (const auto& [what, name] : {std::pair{"login", refusal.login}, {"camera", refusal.camera}}) {
        if (!name.empty())
            line += std::string(", ") + what + " \"" + Printable(name) + "\"";
    }
    line.append(": ").append(refusal.reason);
    Limit(std::string(kRefusedChannel) + '\n' + std::string(refusal.whom), kRefusedChannel, line);
    const std::lock_guard guard(m_listenerMutex);
    if (m_listener)
        m_listener(refusal);
}

void Console::SetRefusalListener(RefusalListener listener) {
    const std::lock_guard guard(m_listenerMutex);
    m_listener = std::move(listener);
}

void Console::Limit(const std::string& key, std::string_view channel, std::string_view text) {
    const std::lock_guard guard(m_mutex);
    m_limiter.Add(key, channel, text, LineLimiter::Clock::now());
}

void Console::Tick() {
    const std::lock_guard guard(m_mutex);
    m_limiter.Tick(LineLimiter::Clock::now());
}

void Console::Flush() {
    const std::lock_guard guard(m_mutex);
    m_limiter.Flush();
}

void Console::WriteLogLine(const std::string& channel, const std::string& text) {
    std::string line;
    if (m_journal) {
        // The journal has the time, and reads the level from the front.
        line = "<" + std::to_string(LevelOf(channel)) + ">" + Printable(channel) + ": ";
    } else {
        line = LocalTime() + "  " + Printable(channel);
        line.resize(std::max<std::size_t>(line.size() + 1, 24), ' ');
    }
    Write(STDERR_FILENO, line + text + "\n");
}

void Console::Write(int fd, std::string_view line) {
    while (!line.empty()) {
        const ssize_t written = ::write(fd, line.data(), line.size());
        if (written > 0)
            line.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return; // nobody reads the console any more: no reason to stop the host
    }
}

Console& Console::Get() {
    static Console console;
    return console;
}

} // namespace host
