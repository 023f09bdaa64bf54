// Lines on the console: the host's own, and those that the component writes through its log engine.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace host {

using platform::Printable;

// One whole line at a time, from any thread.
class Console {
public:
    // Writes to standard output: what the person who started the host wants to know.
    void Say(std::string_view line);
    // Writes a log line to standard error: local time, channel and text, or as the journal reads it.
    void Log(std::string_view channel, std::string_view text);

    static Console& Get();

private:
    Console();
    void Write(int fd, const std::string& line);
    const bool m_journal;
    std::mutex m_mutex;
};

enum class Verbosity {
    Quiet,   // what went wrong
    Normal,  // and what phones do
    Verbose, // and every channel, with the place that a line comes from
};

// Makes the log engine, which the component loads by the name of its library, one that prints to the console.
// Once, before the component is created.
void RegisterLogEngine(Verbosity verbosity);

} // namespace host
