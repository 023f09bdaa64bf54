// What ends with a scope, on every way out of it: something to run, and one file descriptor.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

template <class Action>
class [[nodiscard]] AtScopeEnd {
public:
    explicit AtScopeEnd(Action action) : m_action(std::move(action)) {}
    AtScopeEnd(const AtScopeEnd&) = delete;
    AtScopeEnd& operator=(const AtScopeEnd&) = delete;
    ~AtScopeEnd() { m_action(); }

private:
    Action m_action;
};

// Owner of one file descriptor.
class Descriptor {
public:
    Descriptor() noexcept = default;
    explicit Descriptor(int value) noexcept : m_value(value) {}
    Descriptor(Descriptor&& other) noexcept : m_value(other.Release()) {}
    Descriptor& operator=(Descriptor&& other) noexcept {
        Descriptor old(std::exchange(m_value, other.Release()));
        return *this;
    }
    ~Descriptor() { Close(); }

    [[nodiscard]] int Get() const noexcept { return m_value; } // -1: none
    explicit operator bool() const noexcept { return m_value >= 0; }
    [[nodiscard]] int Release() noexcept { return std::exchange(m_value, -1); }

    // Closes now, for callers to whom a late write error matters. False with errno set. After EINTR the
    // descriptor is gone as well on this system, so that is no failure.
    bool Close() noexcept { return m_value < 0 || ::close(Release()) == 0 || errno == EINTR; }

private:
    int m_value = -1;
};

} // namespace platform
