// Blocking stream sockets behind handles.
//
// A handle is an index with a generation, never 0 and never INVALID_SOCKET, and never a descriptor: a handle
// that was closed stays invalid however often descriptors are reused. Any thread may use a handle;
// closesocket on one thread ends recv and send on others at once, and the descriptor is released only when
// the last of them has left. Nothing here raises SIGPIPE.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/export.h"

using SOCKET = std::uintptr_t;
inline constexpr SOCKET INVALID_SOCKET = ~SOCKET{0};

namespace platform {

inline constexpr int kSocketError = -1;

// Takes a connected descriptor over; it is made blocking, and closed in programs that this process starts. On
// failure the descriptor is closed, the result is INVALID_SOCKET and the last error is set:
// kSocketNotASocket, kSocketInvalid for a socket that is no stream, kSocketTooMany when 65536 handles are
// open.
//
// `ahead` are bytes that were read from the descriptor before, `size` of them: they are copied, and recv
// gives them first. kSocketNoBuffers, as a last error, when there is no memory for them.
MORROW_PLATFORM_API SOCKET AdoptSocket(int descriptor, const void* ahead = nullptr,
                                       std::size_t size = 0) noexcept;

// Receive up to `size` bytes: the count, 0 when the peer has closed its side, or kSocketError with the last
// error set (kSocketInterrupted when this handle is closed meanwhile, kSocketNotASocket when it was closed
// before, kSocketTimedOut when whoever made the socket gave it a time limit). 0 at once for `size` 0. `flags`
// must be 0 (kSocketInvalid). Signals do not end a wait.
MORROW_PLATFORM_API int recv(SOCKET socket, void* buffer, int size, int flags) noexcept;

// Sends: blocks until all bytes are handed to the system, as a blocking socket does. The count sent, which is
// less than `size` only if the connection failed after a part, or kSocketError with the last error set.
MORROW_PLATFORM_API int send(SOCKET socket, const void* bytes, int size, int flags) noexcept;

// 0, or kSocketError (kSocketNotASocket) for a handle that is not open: closing twice is harmless.
MORROW_PLATFORM_API int closesocket(SOCKET socket) noexcept;

// The calling thread's last socket error; the same store as LastError.
MORROW_PLATFORM_API std::uint32_t LastSocketError() noexcept;

// How many handles are open, for leak checks.
MORROW_PLATFORM_API std::uint32_t OpenSocketCount() noexcept;

} // namespace platform
