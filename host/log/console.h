// Lines on the console: one whole line at a time, from any thread.
#pragma once

#include <mutex>
#include <string>
#include <string_view>

namespace host {

// Control characters and bytes that are no UTF-8 made visible: names in a line come from outside, and a
// terminal obeys what it is sent.
std::string Printable(std::string_view text);

class Console {
public:
    // What the person who started the host came for: standard output.
    void Say(std::string_view line);
    // A log line: local time, channel and text, on standard error.
    void Log(std::string_view channel, std::string_view text);

    static Console& Get();

private:
    void Write(int fd, const std::string& line);
    std::mutex m_mutex;
};

} // namespace host
