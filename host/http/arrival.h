// Whether what was sent on a connection has arrived.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>

#include "host/base/wait.h"

namespace host {

// Arrived is what the peer's system has acknowledged: it lies there for the program that asked, whatever
// becomes of the connection then. Belongs to one thread.
class Arrival {
public:
    // Before anything is sent on the connection, which outlives the object or is not asked about any more.
    explicit Arrival(int fd) noexcept;

    void Sent(std::size_t bytes) noexcept { m_sent += bytes; }
    // Waits until all of it has arrived. False when the connection ends before, or the stop signal comes, or
    // nothing more arrives for `stall`.
    [[nodiscard]] bool Await(const Wakeup& stop, std::chrono::milliseconds stall) const;

private:
    int m_fd;
    std::uint64_t m_before; // acknowledged, of the handshake
    std::uint64_t m_sent = 0;
};

} // namespace host
