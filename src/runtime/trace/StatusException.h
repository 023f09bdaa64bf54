// The status exception reports what should not happen in a running system, above all a failed allocation of a
// text. It never crosses an interface: StatusOf makes the status of an operation of whatever was thrown.
#pragma once

#include <exception>
#include <new>
#include <utility>

#include "platform/status.h"

class CAtlException {
public:
    explicit CAtlException(HRESULT hr) noexcept : m_hr(hr) {}
    [[nodiscard]] HRESULT Status() const noexcept { return m_hr; }

private:
    HRESULT m_hr;
};

[[noreturn]] inline void AtlThrow(HRESULT hr) {
    throw CAtlException(hr);
}
// A last error greater than 0 becomes a status with the error in its low 16 bits; any other value stands as
// it is.
[[noreturn]] inline void AtlThrowLastError() {
    AtlThrow(platform::StatusFromError(platform::LastError()));
}

// Runs an operation's body and returns its status; a status exception and exhausted memory become statuses
// too.
template <class Body>
HRESULT StatusOf(Body&& body) noexcept {
    try {
        return std::forward<Body>(body)();
    } catch (const CAtlException& e) {
        return e.Status();
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    } catch (const std::exception&) {
        return E_UNEXPECTED;
    }
}

// Runs a piece of text work; exhausted memory becomes a status exception.
template <class Work>
decltype(auto) ThrowStatusWithoutMemory(Work&& work) {
    try {
        return std::forward<Work>(work)();
    } catch (const std::bad_alloc&) {
        AtlThrow(E_OUTOFMEMORY);
    }
}
