// Lines on the console: one whole line at a time, from any thread.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

#include "platform/text.h"

namespace host {

using platform::Printable;

class Console {
public:
    // What the person who started the host came for: standard output.
    void Say(std::string_view line);
    // A log line on standard error: local time, channel and text, or as the journal reads it.
    void Log(std::string_view channel, std::string_view text);

    static Console& Get();

private:
    Console();
    void Write(int fd, const std::string& line);
    const bool m_journal;
    std::mutex m_mutex;
};

} // namespace host
