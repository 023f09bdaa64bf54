// The bytes of one connection, in clear or under TLS.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <span>
#include <string>
#include <string_view>

#include <sys/types.h>

#include "host/base/wait.h"
#include "host/tls/session.h"

namespace host {

// Owns the socket, a non-blocking one. Belongs to one thread.
class Stream {
public:
    explicit Stream(Descriptor socket) noexcept;

    // Makes it one of TLS, whose first byte is there to be read. False when that did not succeed by the
    // deadline, or the stop signal came.
    [[nodiscard]] bool Secure(const TlsContext& context, const Wakeup& stop, Clock::time_point deadline);
    [[nodiscard]] bool IsSecure() const noexcept { return m_tls != nullptr; }

    // None of these waits. Above 0: that many bytes; 0: the peer has closed; kAgain: to be called again, with
    // the same bytes, once the socket is ready for Awaits(); kBroken: the connection is at its end.
    static constexpr ssize_t kAgain = TlsSession::kAgain;
    static constexpr ssize_t kBroken = TlsSession::kBroken;
    ssize_t Read(char* bytes, std::size_t size) noexcept;
    ssize_t Write(std::string_view bytes) noexcept; // may take a part
    // The same of several parts that belong together, at most kMostParts: as one packet and one record of TLS
    // where that is possible.
    static constexpr std::size_t kMostParts = 4;
    ssize_t Write(std::span<const std::string_view> parts) noexcept;
    [[nodiscard]] short Awaits() const noexcept { return m_awaits; }

    // Puts back what was read too far: the next Read gives it. Under TLS alone, where nothing can be peeked.
    void PutBack(std::string_view bytes) { m_ahead.insert(0, bytes); }

    // Ends our side of it, behind all that was written. Never waits.
    void EndSending() noexcept;
    void Close() noexcept { m_socket.Close(); }

    [[nodiscard]] int Fd() const noexcept { return m_socket.Get(); }
    // In clear: for who takes the socket as it is.
    [[nodiscard]] Descriptor& Socket() noexcept { return m_socket; }
    // Bytes that went to the socket, those of TLS included.
    [[nodiscard]] std::uint64_t SentToSocket() const noexcept;

private:
    ssize_t Outcome(ssize_t result, short events) noexcept;
    ssize_t WriteGathered(std::span<const std::string_view> parts) noexcept;
    ssize_t WriteTogether(std::span<const std::string_view> parts) noexcept;

    Descriptor m_socket;
    std::unique_ptr<TlsSession> m_tls;
    std::string m_ahead;
    std::uint64_t m_sent = 0; // in clear
    short m_awaits = 0;
};

} // namespace host
