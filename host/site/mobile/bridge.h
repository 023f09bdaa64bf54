// Stands between a phone under TLS and the component, which reads and writes a socket by itself.
#pragma once

#include <string_view>

#include "host/base/wait.h"
#include "host/bridge/intake.h"
#include "host/http/stream.h"

namespace host {

// A pair of connected sockets: the component has one of them, and Carry moves bytes between the other one and
// the phone.
class Bridge {
public:
    // The component's end.
    [[nodiscard]] Descriptor& Inner() noexcept { return m_pair.inner; }
    // A few bytes of the phone's that were read before; they have room in the socket.
    void Feed(std::string_view bytes) noexcept;
    // Until one of the two sides has ended and the other one has got what was on its way, or takes nothing
    // for `stall` then. The thread is one of the connection.
    void Carry(Stream& phone, const Wakeup& stop, std::chrono::milliseconds stall);

private:
    SocketPair m_pair; // throws std::system_error
};

} // namespace host
