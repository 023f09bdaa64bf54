// The TLS of one connection, the server's end of it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string_view>

#include <sys/types.h>

#include "host/tls/context.h"

namespace host {

// Belongs to one thread. The socket is a non-blocking one and outlives the object.
class TlsSession {
public:
    TlsSession(const TlsContext& context, int fd); // throws TlsError
    ~TlsSession();
    TlsSession(const TlsSession&) = delete;
    TlsSession& operator=(const TlsSession&) = delete;

    // Each takes one step and never waits. Above 0: that many bytes (1 for a handshake that is done); 0: the
    // peer has closed; kAgain: to be called again with the same bytes once the socket is ready for Awaits();
    // kBroken: the connection is at its end.
    static constexpr ssize_t kAgain = -1;
    static constexpr ssize_t kBroken = -2;
    ssize_t Shake() noexcept;
    ssize_t Read(char* bytes, std::size_t size) noexcept;
    ssize_t Write(std::string_view bytes) noexcept; // may take a part
    // Tells the peer that nothing more comes, if the socket takes that at once.
    void SayEnd() noexcept;

    [[nodiscard]] short Awaits() const noexcept { return m_awaits; } // POLLIN or POLLOUT
    // Bytes that went to the socket, those of the protocol included.
    [[nodiscard]] std::uint64_t SentToSocket() const noexcept;

private:
    ssize_t Outcome(int result) noexcept;

    struct Inside;
    std::unique_ptr<Inside> m_inside;
    short m_awaits = 0;
    bool m_broken = false;
};

} // namespace host
