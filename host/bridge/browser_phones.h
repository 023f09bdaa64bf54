// Which browsers are phones at the moment, and what others have for them.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>
#include <deque>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <string>
#include <vector>

#include "host/base/wait.h"

namespace host {

// Thread-safe.
class BrowserPhones {
public:
    // Where others leave something for a phone's page.
    class Mailbox {
    public:
        // Signalled for whatever follows.
        Wakeup wakeup;

        // The oldest message that an administrator has left; empty without one.
        std::string TakeControl();
        // Whether another connection of the same phone has come.
        [[nodiscard]] bool IsReplaced() const noexcept { return m_replaced; }

    private:
        friend class BrowserPhones;
        // A page that takes none is not remembered more than that.
        static constexpr std::size_t kMostControls = 16;

        std::atomic<bool> m_replaced{false};
        std::mutex m_mutex;
        std::deque<std::string> m_controls; // under m_mutex
    };
    using MailboxPtr = std::shared_ptr<Mailbox>;

    // A connection of a phone has come, in place of an earlier one of it.
    MailboxPtr Enter(const std::string& phone);
    void Leave(const std::string& phone, const MailboxPtr& mailbox);
    // It sends for that camera from now on, or does so no more. Another one may have begun meanwhile.
    void Begin(const std::string& camera, MailboxPtr mailbox);
    void End(const std::string& camera, const MailboxPtr& mailbox);

    // A phone has gone that was pausing, and its camera's feed says so still: of that session.
    struct Pause {
        std::string phone;
        std::string camera;
        std::uint64_t session = 0;
    };
    void LeavePause(Pause pause);
    // Takes those whose phone is no longer good.
    std::vector<Pause> TakeEndedPauses(const std::function<bool(const std::string& phone)>& isGood);

    // Leaves a message for the phone that sends for that camera; false where none does.
    bool Control(const std::string& camera, std::string message);

private:
    std::mutex m_mutex;                          // what is below
    std::map<std::string, MailboxPtr> m_phones;  // by phone
    std::map<std::string, MailboxPtr> m_cameras; // by camera
    std::map<std::string, Pause> m_pauses;       // by camera: the newest one
};

} // namespace host
