// Takes a request's bytes off a connection and no others, sends an answer's, and tells whether they have
// arrived. Sockets are non-blocking ones.
//
// What follows the head of an upload belongs to the component, so in clear the head is looked at with
// MSG_PEEK until its blank line is there, and only then are exactly its bytes taken off the socket. Under TLS
// the stream keeps what was read too far.
#pragma once

#include <chrono>
#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>

#include "host/base/wait.h"
#include "host/http/stream.h"

namespace host {

enum class HeadResult {
    Complete,
    Closed,   // the peer left, in the middle or before the first byte
    Timeout,  // nothing complete by the deadline
    TooLarge, // no blank line within kMaxHeadBytes
    Stopped,
};

struct Head {
    HeadResult result = HeadResult::Closed;
    std::string text;      // up to and including the blank line
    bool anyBytes = false; // whether a head had been begun
};
// On Complete exactly the head has been taken off it.
Head ReadHead(Stream& stream, const Wakeup& stop, Clock::time_point deadline);

// Takes `bytes` bytes off the connection into `body`; on another result than Complete it holds what came.
HeadResult ReadBody(Stream& stream, std::size_t bytes, std::string* body, const Wakeup& stop,
                    Clock::time_point deadline);

// Waits until `bytes` bytes are there to be read in clear, and takes none. On Complete `seen` holds them.
HeadResult WaitForBytes(int fd, std::size_t bytes, std::string* seen, const Wakeup& stop,
                        Clock::time_point deadline);

// Length of the head at the start of `text`, blank line included; 0 when it is not complete. A line may end
// in a line feed alone, as old phones send it.
std::size_t FindHeadEnd(std::string_view text) noexcept;

enum class SendResult { Sent, Stalled, Broken, Stopped };
// Sends everything, or gives up when the peer takes nothing for `stall`.
SendResult SendAll(Stream& stream, std::string_view bytes, const Wakeup& stop,
                   std::chrono::milliseconds stall);

// Ends our side of the connection and reads for a moment what the peer still sends: closing over unread bytes
// would reset it and could take the answer with it. False when the connection is broken.
bool FinishSending(Stream& stream, const Wakeup& stop);

// Whether what was sent on a connection has arrived.
//
// Arrived is what the peer's system has acknowledged: it lies there for the program that asked, whatever
// becomes of the connection then. Belongs to one thread.
class Arrival {
public:
    // Before anything is sent on the connection.
    explicit Arrival(const Stream& stream) noexcept;

    // Waits until all that was sent on it since has arrived. False when the connection ends before, or the
    // stop signal comes, or nothing more arrives for `stall`.
    [[nodiscard]] bool Await(const Stream& stream, const Wakeup& stop, std::chrono::milliseconds stall) const;

private:
    std::uint64_t m_before; // acknowledged, of the handshake
};

} // namespace host
