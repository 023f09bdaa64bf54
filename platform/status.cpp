#include "platform/status.h"

#include <cerrno>

namespace platform {

namespace {

thread_local std::uint32_t t_lastError = kErrorSuccess;

} // namespace

std::uint32_t LastError() noexcept {
    return t_lastError;
}

void SetLastError(std::uint32_t error) noexcept {
    t_lastError = error;
}

std::uint32_t ErrorFromErrno(int value) noexcept {
    switch (value) {
    case 0:
        return kErrorSuccess;
    case ENOENT:
        return kErrorFileNotFound;
    case ENOTDIR:
    case ENAMETOOLONG:
    case ELOOP:
        return kErrorPathNotFound;
    case EMFILE:
    case ENFILE:
        return kErrorTooManyOpenFiles;
    case EACCES:
    case EPERM:
    case EROFS:
    case EISDIR:
    case ETXTBSY:
    case EBUSY:
        return kErrorAccessDenied;
    case EBADF:
        return kErrorInvalidHandle;
    case ENOMEM:
        return kErrorNotEnoughMemory;
    case EIO:
        return kErrorReadFault;
    case EEXIST:
    case ENOTEMPTY:
        return kErrorFileExists;
    case EINVAL:
    case EFAULT:
        return kErrorInvalidParameter;
    case ENOEXEC:
        return kErrorBadExeFormat;
    case ENOSPC:
    case EDQUOT:
    case EFBIG:
        return kErrorDiskFull;
    case ERANGE:
    case EOVERFLOW:
        return kErrorInsufficientBuffer;
    case EILSEQ:
        return kErrorNoUnicodeTranslation;
    case EAGAIN: // threads and processes: their number is used up
        return kErrorNoSystemResources;
    default:
        return kErrorGenFailure;
    }
}

std::uint32_t SocketErrorFromErrno(int value) noexcept {
    switch (value) {
    case 0:
        return kErrorSuccess;
    case EINTR:
        return kSocketInterrupted;
    case EACCES:
    case EPERM:
        return kSocketAccess;
    case EFAULT:
        return kSocketFault;
    case EINVAL:
        return kSocketInvalid;
    case EMFILE:
    case ENFILE:
        return kSocketTooMany;
    case EAGAIN:
        return kSocketWouldBlock;
    case EBADF:
    case ENOTSOCK:
        return kSocketNotASocket;
    case ENETDOWN:
        return kSocketNetworkDown;
    case ENETUNREACH:
        return kSocketNetworkUnreachable;
    case ECONNABORTED:
        return kSocketConnectionAborted;
    case ECONNRESET:
        return kSocketConnectionReset;
    case ENOBUFS:
    case ENOMEM:
        return kSocketNoBuffers;
    case ENOTCONN:
        return kSocketNotConnected;
    case EPIPE:
        return kSocketShutdown;
    case ETIMEDOUT:
        return kSocketTimedOut;
    case ECONNREFUSED:
        return kSocketConnectionRefused;
    case EHOSTUNREACH:
    case EHOSTDOWN:
        return kSocketHostUnreachable;
    default:
        return kErrorGenFailure;
    }
}

} // namespace platform
