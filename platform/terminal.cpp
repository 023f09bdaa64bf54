#include "platform/terminal.h"

#include <termios.h>
#include <unistd.h>

#include <array>
#include <cstdio>
#include <iostream>

namespace platform {
namespace {

constexpr char kInterrupt = 3; // Ctrl-C

// Shows nothing of what is typed. Ctrl-C ends the line instead of the program, which would leave a terminal
// that shows nothing.
class WithoutEcho {
public:
    WithoutEcho() noexcept : m_changed(::tcgetattr(STDIN_FILENO, &m_before) == 0) {
        termios quiet = m_before;
        quiet.c_lflag &= ~static_cast<tcflag_t>(ECHO | ISIG);
        quiet.c_cc[VEOL] = kInterrupt;
        m_changed = m_changed && ::tcsetattr(STDIN_FILENO, TCSAFLUSH, &quiet) == 0;
    }
    WithoutEcho(const WithoutEcho&) = delete;
    WithoutEcho& operator=(const WithoutEcho&) = delete;
    ~WithoutEcho() {
        if (m_changed)
            ::tcsetattr(STDIN_FILENO, TCSANOW, &m_before);
        std::fputc('\n', stderr);
    }

private:
    termios m_before{};
    bool m_changed;
};

// A terminal gives one line at a time.
std::optional<std::string> ReadTypedLine() {
    const WithoutEcho quiet;
    std::array<char, 4096> bytes{}; // as long as a line of a terminal gets
    const ssize_t got = ::read(STDIN_FILENO, bytes.data(), bytes.size());
    if (got <= 0)
        return std::nullopt;
    std::string line(bytes.data(), static_cast<std::size_t>(got));
    if (line.back() == kInterrupt)
        return std::nullopt;
    if (line.back() == '\n')
        line.pop_back();
    return line;
}

} // namespace

std::optional<std::string> ReadSecretLine(std::string_view prompt) {
    if (::isatty(STDIN_FILENO) == 1) {
        std::fprintf(stderr, "%.*s", static_cast<int>(prompt.size()), prompt.data());
        return ReadTypedLine();
    }
    std::string line;
    if (!std::getline(std::cin, line))
        return std::nullopt;
    if (line.ends_with('\r'))
        line.pop_back();
    return line;
}

} // namespace platform
