// Other programs: command lines, start, timed wait.
//
// A program is started from a vector of arguments. No shell comes between, so no character of an argument
// means anything to anybody but the program.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <utility>
#include <vector>

#include "platform/export.h"

namespace platform {

// The arguments of a command line, by the rule of the platform that command lines come from. Blanks and tabs
// separate them, except between double quotes. The first argument is the program: a quote in front of it ends
// at the next one, and nothing else in it is special. In the others, backslashes in front of a quote stand
// for half as many, and an odd one makes the quote a character; a quote doubled between quotes is a character
// too.
MORROW_PLATFORM_API std::vector<std::u16string> SplitCommandLine(std::u16string_view line);

// The text as SplitCommandLine takes it for one argument behind the program. As it is where it needs no
// quotes.
MORROW_PLATFORM_API std::u16string QuoteArgument(std::u16string_view text);

struct ProcessSetup {
    std::string folder{};     // the working folder; empty: that of this process
    int output = -1;          // a descriptor for the standard output; -1: the null device
    bool keepsErrors = false; // the standard error is that of this process, not the null device
    bool endsWithStarter =
        false; // gets SIGTERM when the thread that starts it ends, and so with this process
};

// A program that was started. It is the head of a group of its own with whatever it starts itself.
class MORROW_PLATFORM_API Process {
public:
    // Starts `arguments[0]`, a path. It has the environment of this process and the null device for its
    // standard input; no other descriptor, no signal setting goes with it. Nothing, with the last error set,
    // when it cannot be started or an argument holds a zero.
    static std::optional<Process> Start(const std::vector<std::string>& arguments, const ProcessSetup& setup);
    // In a working folder, with nothing else.
    static std::optional<Process> Start(const std::vector<std::string>& arguments, const std::string& folder);

    Process(Process&& other) noexcept : m_id(std::exchange(other.m_id, 0)) {}
    Process& operator=(Process&& other) noexcept {
        const Process old(std::move(*this));
        m_id = std::exchange(other.m_id, 0);
        return *this;
    }
    // Ends the group of a program that still runs, at once. One that has ended is left to what it started.
    ~Process();

    // Asks it, with SIGTERM, to end.
    void AskToEnd() const noexcept;

    // True when it has ended; how is not told. False, with kErrorWaitTimeout as last error, when it runs
    // after that time.
    [[nodiscard]] bool Wait(std::uint32_t milliseconds) noexcept;

private:
    explicit Process(int id) noexcept : m_id(id) {}

    int m_id; // 0: none, or ended
};

} // namespace platform
