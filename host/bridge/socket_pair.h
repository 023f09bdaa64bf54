// A connection within this process.
#pragma once

#include <cerrno>
#include <system_error>

#include <sys/socket.h>

#include "host/base/wait.h"

namespace host {

// Two ends, both non-blocking: the component gets `inner`, and what plays or speaks for the phone has
// `outer`. Throws std::system_error when there is no descriptor left.
struct SocketPair {
    SocketPair() {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
        inner = Descriptor(ends[0]);
        outer = Descriptor(ends[1]);
    }

    Descriptor inner;
    Descriptor outer;
};

} // namespace host
