// The log of a host, for the lines that the component writes.
#pragma once

#include <functional>
#include <string_view>

#include "kit/export.h"

namespace kit {

// One line of the component. All texts are UTF-8, valid until the call ends.
struct LogLine {
    std::string_view channel; // "error", "message", "TRASSDO" for a condition that did not hold, and others
    std::string_view text;    // without the end of the line
    // The place in the component's source; empty and 0 where a line does not tell it.
    std::string_view function;
    std::string_view file;
    int number = 0;
};

// Where lines go. The functions are called by the thread that the line is about, several at a time, and often
// with locks of the component held: they must be short and may not call the component. What they throw is
// lost with the line.
struct LogTarget {
    // Whether lines of a channel are wanted at all, which is cheaper than to pass over them in `write`.
    // Empty: all of them.
    std::function<bool(std::string_view channel)> wants;
    std::function<void(const LogLine& line)> write;
};

// Makes the process's log engine, which the component asks for when it writes its first line, so this comes
// before the component. A later call replaces the target, and one without `write` ends it; a call of the old
// one that has begun on another thread may still be at work then. Any thread. Throws std::bad_alloc.
MORROW_KIT_API void SetLogTarget(LogTarget target);

} // namespace kit
