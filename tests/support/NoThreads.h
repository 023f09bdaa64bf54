// A process that gets no more threads.
#pragma once

#include <sys/resource.h>

#include <cstdint>
#include <fstream>
#include <stdexcept>

namespace support {

// Runs something while the process may grow, but not by a stack.
template <class Action>
void WithoutThreads(Action action) {
    std::uint64_t pages = 0;
    std::ifstream("/proc/self/statm") >> pages;
    rlimit before{};
    ::getrlimit(RLIMIT_AS, &before);
    const rlimit tight{pages * 4096 + 0x38000, before.rlim_max};
    if (::setrlimit(RLIMIT_AS, &tight) != 0)
        throw std::runtime_error("no limit");
    action();
    ::setrlimit(RLIMIT_AS, &before);
}

} // namespace support
