// Status codes: 32 bits, negative means failure, 0 success, other positive values success of a lesser kind.
//
// The names and numbers are the vocabulary of every interface, so they stand in the global namespace.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/export.h"

using HRESULT = std::int32_t;

// A status is written as operators know it, in hexadecimal and unsigned.
constexpr HRESULT MakeStatus(std::uint32_t bits) noexcept {
    return static_cast<HRESULT>(bits);
}

inline constexpr HRESULT S_OK = 0;
inline constexpr HRESULT S_FALSE = 1;
inline constexpr HRESULT E_NOTIMPL = MakeStatus(0x80004001);
inline constexpr HRESULT E_NOINTERFACE = MakeStatus(0x80004002);
inline constexpr HRESULT E_POINTER = MakeStatus(0x80004003);
inline constexpr HRESULT E_FAIL = MakeStatus(0x80004005);
inline constexpr HRESULT E_UNEXPECTED = MakeStatus(0x8000FFFF);
inline constexpr HRESULT E_PENDING = MakeStatus(0x8000000A);
inline constexpr HRESULT CLASS_E_NOAGGREGATION = MakeStatus(0x80040110);
inline constexpr HRESULT CLASS_E_CLASSNOTAVAILABLE = MakeStatus(0x80040111);
inline constexpr HRESULT REGDB_E_CLASSNOTREG = MakeStatus(0x80040154);
inline constexpr HRESULT E_ACCESSDENIED = MakeStatus(0x80070005);
inline constexpr HRESULT E_OUTOFMEMORY = MakeStatus(0x8007000E);
inline constexpr HRESULT E_INVALIDARG = MakeStatus(0x80070057);
// The element that was asked for is not there.
inline constexpr HRESULT E_ELEMENT_NOT_FOUND = MakeStatus(0x80070490);
// The peer has closed the connection.
inline constexpr HRESULT E_CONNECTION_ABORTED = MakeStatus(0x800704D4);

constexpr bool SUCCEEDED(HRESULT hr) noexcept {
    return hr >= 0;
}
constexpr bool FAILED(HRESULT hr) noexcept {
    return hr < 0;
}

namespace platform {

// System and socket error codes that this layer produces. The numbers are those that operators know from
// logs.
inline constexpr std::uint32_t kErrorSuccess = 0;
inline constexpr std::uint32_t kErrorFileNotFound = 2;
inline constexpr std::uint32_t kErrorPathNotFound = 3;
inline constexpr std::uint32_t kErrorTooManyOpenFiles = 4;
inline constexpr std::uint32_t kErrorAccessDenied = 5;
inline constexpr std::uint32_t kErrorInvalidHandle = 6;
inline constexpr std::uint32_t kErrorNotEnoughMemory = 8;
inline constexpr std::uint32_t kErrorBadFormat = 11;
inline constexpr std::uint32_t kErrorInvalidData = 13;
inline constexpr std::uint32_t kErrorWriteFault = 29;
inline constexpr std::uint32_t kErrorReadFault = 30;
inline constexpr std::uint32_t kErrorGenFailure = 31;
inline constexpr std::uint32_t kErrorFileExists = 80;
inline constexpr std::uint32_t kErrorInvalidParameter = 87;
inline constexpr std::uint32_t kErrorDiskFull = 112;
inline constexpr std::uint32_t kErrorInvalidModuleType = 114;
inline constexpr std::uint32_t kErrorInsufficientBuffer = 122;
inline constexpr std::uint32_t kErrorModNotFound = 126;
inline constexpr std::uint32_t kErrorProcNotFound = 127;
inline constexpr std::uint32_t kErrorInvalidAddress = 487;
inline constexpr std::uint32_t kErrorBadExeFormat = 193;
inline constexpr std::uint32_t kErrorWaitTimeout = 258;
inline constexpr std::uint32_t kErrorNoUnicodeTranslation = 1113;
inline constexpr std::uint32_t kErrorNoSystemResources = 1450;
inline constexpr std::uint32_t kErrorResourceNotFound = 1813;
inline constexpr std::uint32_t kSocketInterrupted = 10004; // the socket was closed on another thread
inline constexpr std::uint32_t kSocketAccess = 10013;
inline constexpr std::uint32_t kSocketFault = 10014;
inline constexpr std::uint32_t kSocketInvalid = 10022;
inline constexpr std::uint32_t kSocketTooMany = 10024;
inline constexpr std::uint32_t kSocketWouldBlock = 10035;
inline constexpr std::uint32_t kSocketNotASocket = 10038; // the handle is not, or no longer, a socket
inline constexpr std::uint32_t kSocketNetworkDown = 10050;
inline constexpr std::uint32_t kSocketNetworkUnreachable = 10051;
inline constexpr std::uint32_t kSocketConnectionAborted = 10053;
inline constexpr std::uint32_t kSocketConnectionReset = 10054;
inline constexpr std::uint32_t kSocketNoBuffers = 10055;
inline constexpr std::uint32_t kSocketNotConnected = 10057;
inline constexpr std::uint32_t kSocketShutdown = 10058; // also what a write to a closed peer gives
inline constexpr std::uint32_t kSocketTimedOut = 10060;
inline constexpr std::uint32_t kSocketConnectionRefused = 10061;
inline constexpr std::uint32_t kSocketHostUnreachable = 10065;

// A positive error code becomes 0x80070000 ORed with its low 16 bits; 0 and negative values are taken
// unchanged.
constexpr HRESULT StatusFromError(std::uint32_t error) noexcept {
    const auto code = static_cast<std::int32_t>(error);
    return code > 0 ? MakeStatus(0x80070000U | (error & 0xFFFFU)) : code;
}

// The one mapping from errno to the numbers above. Values without a counterpart become kErrorGenFailure.
MORROW_PLATFORM_API std::uint32_t ErrorFromErrno(int value) noexcept;       // files, processes, memory
MORROW_PLATFORM_API std::uint32_t SocketErrorFromErrno(int value) noexcept; // sockets

// The calling thread's last error: set by a failing operation of this layer, never cleared by a success.
MORROW_PLATFORM_API std::uint32_t LastError() noexcept;
MORROW_PLATFORM_API void SetLastError(std::uint32_t error) noexcept;

// The text of a code as the table holds it, with its line end, inserts unexpanded; empty when there is none.
// A status that carries an error code (0x8007xxxx) has that error's text.
MORROW_PLATFORM_API std::u16string_view MessageText(std::uint32_t code) noexcept;

} // namespace platform
