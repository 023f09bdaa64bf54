// A phone's connection while the component has it.
#pragma once

#include <atomic>
#include <cstdint>
#include <memory>
#include <string>

#include "host/log/console.h"
#include "platform/socket.h"

namespace host {

// The activity of whoever works for the connection, the component's threads included: it gives their log
// lines a subject, and lives exactly as long as the last of them.
class PhoneSession : public LogSubject {
public:
    // So many pictures in a row that cannot be decoded, and the phone sends rubbish. A camera that is covered
    // or damaged still sends JPEG.
    static constexpr unsigned kMostUndecodable = 200;

    // `held` is what the phone has taken up and gives back at its end; may be null.
    PhoneSession(std::string subject, SOCKET handle, std::shared_ptr<const void> held = nullptr)
        : LogSubject(std::move(subject)), m_handle(handle), m_held(std::move(held)) {}

    // Of the calling thread; null on one that works for no phone.
    static PhoneSession* OfThread() noexcept {
        return dynamic_cast<PhoneSession*>(platform::ThreadActivity());
    }

    // Of no other connection of this run; never 0.
    [[nodiscard]] std::uint64_t Number() const noexcept { return m_number; }

    // For the thread that receives its pictures. True for the one that is one too many.
    bool CountPicture(bool decoded) noexcept {
        m_undecodable = decoded ? 0 : m_undecodable + 1;
        if (m_undecodable == kMostUndecodable)
            m_sendsRubbish = true;
        return m_undecodable == kMostUndecodable;
    }
    // Whether that has happened. Any thread.
    [[nodiscard]] bool SendsRubbish() const noexcept { return m_sendsRubbish; }
    // Closes the connection. The handle is the host's no more, but stays good for that: it never becomes
    // another connection's.
    void End() const noexcept { (void)platform::closesocket(m_handle); }

private:
    static inline std::atomic<std::uint64_t> s_lastNumber{0};

    const std::uint64_t m_number = ++s_lastNumber;
    const SOCKET m_handle;
    const std::shared_ptr<const void> m_held;
    unsigned m_undecodable = 0;
    std::atomic<bool> m_sendsRubbish{false};
};

} // namespace host
