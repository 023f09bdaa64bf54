// Slows down an address that sends wrong passwords.
//
// The first wrong ones are free; after that each check of a password from that address waits its turn, and
// the turns lie further apart with every wrong one. A sender whose turn would come too late is turned away at
// once, without a check. The turns are handed out one behind the other, so that many connections at a time
// guess no faster than one.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "host/base/wait.h"

namespace host {

class Throttle {
public:
    explicit Throttle(std::chrono::milliseconds maxWait) : m_maxWait(maxWait) {}

    // When the next password of this address may be checked (now, in the best case); nothing when that is
    // more than the longest wait away.
    std::optional<Clock::time_point> Reserve(const std::string& address, Clock::time_point now);
    void ReportWrong(const std::string& address, Clock::time_point now);
    // How long a sender that was turned away should stay away.
    [[nodiscard]] std::chrono::seconds RetryAfter(const std::string& address, Clock::time_point now) const;

private:
    static constexpr unsigned kFree = 5;
    static constexpr std::chrono::milliseconds kFirstDelay{250};
    static constexpr std::chrono::milliseconds kLongestDelay{4000};
    static constexpr std::chrono::minutes kForgetAfter{10};
    static constexpr std::size_t kMaxAddresses = 4096;

    struct Record {
        unsigned wrong = 0;
        Clock::time_point lastWrong;
        Clock::time_point next; // the first turn that is free
    };
    static std::chrono::milliseconds DelayAfter(unsigned wrong) noexcept;
    void Forget(Clock::time_point now);

    const std::chrono::milliseconds m_maxWait;
    mutable std::mutex m_mutex;
    std::map<std::string, Record> m_records;
};

} // namespace host
