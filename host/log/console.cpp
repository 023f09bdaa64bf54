#include "host/log/console.h"

#include <array>
#include <cerrno>
#include <chrono>
#include <cstdio>
#include <ctime>

#include <unistd.h>

#include "host/log/journal.h"
#include "platform/text.h"

namespace host {

Console::Console() : m_journal(IsJournal(STDERR_FILENO)) {}

void Console::Say(std::string_view line) {
    Write(STDOUT_FILENO, std::string(line) + "\n");
}

void Console::Log(std::string_view channel, std::string_view text) {
    while (!text.empty() && (text.back() == '\n' || text.back() == '\r'))
        text.remove_suffix(1);
    if (m_journal) {
        // The journal has the time, and reads the level from the front.
        Write(STDERR_FILENO, "<" + std::to_string(LevelOf(channel)) + ">" + Printable(channel) + ": " +
                                 Printable(text) + "\n");
        return;
    }
    const auto now = std::chrono::system_clock::now();
    const std::time_t seconds = std::chrono::system_clock::to_time_t(now);
    const auto milliseconds =
        std::chrono::duration_cast<std::chrono::milliseconds>(now.time_since_epoch()).count() % 1000;
    std::tm local{};
    ::localtime_r(&seconds, &local);
    std::array<char, 40> time{};
    std::snprintf(time.data(), time.size(), "%02d:%02d:%02d.%03d", local.tm_hour, local.tm_min, local.tm_sec,
                  static_cast<int>(milliseconds));
    std::string line = time.data();
    line += "  ";
    line += Printable(channel);
    line.resize(std::max<std::size_t>(line.size(), 24), ' ');
    Write(STDERR_FILENO, line + Printable(text) + "\n");
}

void Console::Write(int fd, const std::string& line) {
    const std::lock_guard guard(m_mutex);
    std::string_view rest = line;
    while (!rest.empty()) {
        const ssize_t written = ::write(fd, rest.data(), rest.size());
        if (written > 0)
            rest.remove_prefix(static_cast<std::size_t>(written));
        else if (errno != EINTR)
            return; // nobody reads the console any more: no reason to stop the host
    }
}

Console& Console::Get() {
    static Console console;
    return console;
}

} // namespace host
