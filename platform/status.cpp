#include "platform/status.h"

#include <algorithm>
#include <cerrno>
#include <span>

namespace platform {

namespace {

thread_local std::uint32_t t_lastError = kErrorSuccess;

// An errno, and what it is to the platform's callers.
struct Meaning {
    int value;
    std::uint32_t error;
};

constexpr Meaning kOfFiles[] = {
    {0, kErrorSuccess},
    {ENOENT, kErrorFileNotFound},
    {ENOTDIR, kErrorPathNotFound},
    {ENAMETOOLONG, kErrorPathNotFound},
    {ELOOP, kErrorPathNotFound},
    {EMFILE, kErrorTooManyOpenFiles},
    {ENFILE, kErrorTooManyOpenFiles},
    {EACCES, kErrorAccessDenied},
    {EPERM, kErrorAccessDenied},
    {EROFS, kErrorAccessDenied},
    {EISDIR, kErrorAccessDenied},
    {ETXTBSY, kErrorAccessDenied},
    {EBUSY, kErrorAccessDenied},
    {EBADF, kErrorInvalidHandle},
    {ENOMEM, kErrorNotEnoughMemory},
    {EIO, kErrorReadFault},
    {EEXIST, kErrorFileExists},
    {ENOTEMPTY, kErrorFileExists},
    {EINVAL, kErrorInvalidParameter},
    {EFAULT, kErrorInvalidParameter},
    {ENOEXEC, kErrorBadExeFormat},
    {ENOSPC, kErrorDiskFull},
    {EDQUOT, kErrorDiskFull},
    {EFBIG, kErrorDiskFull},
    {ERANGE, kErrorInsufficientBuffer},
    {EOVERFLOW, kErrorInsufficientBuffer},
    {EILSEQ, kErrorNoUnicodeTranslation},
    // Threads and processes: their number is used up.
    {EAGAIN, kErrorNoSystemResources},
};

constexpr Meaning kOfSockets[] = {
    {0, kErrorSuccess},
    {EINTR, kSocketInterrupted},
    {EACCES, kSocketAccess},
    {EPERM, kSocketAccess},
    {EFAULT, kSocketFault},
    {EINVAL, kSocketInvalid},
    {EMFILE, kSocketTooMany},
    {ENFILE, kSocketTooMany},
    {EAGAIN, kSocketWouldBlock},
    {EBADF, kSocketNotASocket},
    {ENOTSOCK, kSocketNotASocket},
    {ENETDOWN, kSocketNetworkDown},
    {ENETUNREACH, kSocketNetworkUnreachable},
    {ECONNABORTED, kSocketConnectionAborted},
    {ECONNRESET, kSocketConnectionReset},
    {ENOBUFS, kSocketNoBuffers},
    {ENOMEM, kSocketNoBuffers},
    {ENOTCONN, kSocketNotConnected},
    {EPIPE, kSocketShutdown},
    {ETIMEDOUT, kSocketTimedOut},
    {ECONNREFUSED, kSocketConnectionRefused},
    {EHOSTUNREACH, kSocketHostUnreachable},
    {EHOSTDOWN, kSocketHostUnreachable},
};

std::uint32_t MeaningOf(int value, std::span<const Meaning> meanings) noexcept {
    const auto found = std::ranges::find(meanings, value, &Meaning::value);
    return found != meanings.end() ? found->error : kErrorGenFailure;
}

} // namespace

std::uint32_t LastError() noexcept {
    return t_lastError;
}

void SetLastError(std::uint32_t error) noexcept {
    t_lastError = error;
}

std::uint32_t ErrorFromErrno(int value) noexcept {
    return MeaningOf(value, kOfFiles);
}

std::uint32_t SocketErrorFromErrno(int value) noexcept {
    return MeaningOf(value, kOfSockets);
}

} // namespace platform
