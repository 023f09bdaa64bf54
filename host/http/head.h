// Reading the head of a request without taking a byte that is not the head's.
//
// What follows the head of an upload belongs to the component, so the head is looked at with MSG_PEEK until
// its blank line is there, and only then are exactly its bytes taken off the socket.
#pragma once

#include <cstddef>
#include <string>
#include <string_view>

#include "host/base/wait.h"

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
// The socket is a non-blocking one. On Complete exactly the head has been taken off it.
Head ReadHead(int fd, const Wakeup& stop, Clock::time_point deadline);

// Takes `bytes` bytes off the socket into `body`; on another result than Complete it holds what came.
HeadResult ReadBody(int fd, std::size_t bytes, std::string* body, const Wakeup& stop,
                    Clock::time_point deadline);

// Waits until `bytes` bytes are there to be read, and takes none.
HeadResult WaitForBytes(int fd, std::size_t bytes, const Wakeup& stop, Clock::time_point deadline);

// Length of the head at the start of `text`, blank line included; 0 when it is not complete. A line may end
// in a line feed alone, as old phones send it.
std::size_t FindHeadEnd(std::string_view text) noexcept;

} // namespace host
