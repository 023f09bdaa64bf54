// Owner of one file descriptor. Private to this folder.
#pragma once

#include <unistd.h>

#include <cerrno>
#include <utility>

namespace platform {

class Descriptor {
public:
    explicit Descriptor(int value) noexcept : m_value(value) {}
    Descriptor(Descriptor&& other) noexcept : m_value(other.Detach()) {}
    Descriptor(const Descriptor&) = delete;
    Descriptor& operator=(const Descriptor&) = delete;
    Descriptor& operator=(Descriptor&&) = delete;
    ~Descriptor() {
        if (m_value >= 0)
            ::close(m_value);
    }

    [[nodiscard]] bool IsOpen() const noexcept { return m_value >= 0; }
    [[nodiscard]] int Get() const noexcept { return m_value; }
    [[nodiscard]] int Detach() noexcept { return std::exchange(m_value, -1); }

    // Closes now, for callers to whom a late write error matters. False with errno set. After EINTR the
    // descriptor is gone as well on this system, so that is no failure.
    [[nodiscard]] bool Close() noexcept { return ::close(Detach()) == 0 || errno == EINTR; }

private:
    int m_value;
};

} // namespace platform
