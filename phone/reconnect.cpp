#include "phone/connection.h"

#include <algorithm>

#include <poll.h>

namespace phone {
namespace {

// False once `stop` is readable.
bool Sleep(Clock::duration wait, int stop) {
    const auto end = Clock::now() + wait;
    for (;;) {
        const auto left = std::chrono::ceil<std::chrono::milliseconds>(end - Clock::now()).count();
        pollfd entry{.fd = stop, .events = POLLIN, .revents = 0};
        if (::poll(&entry, 1, static_cast<int>(std::max<long long>(left, 0))) > 0)
            return false;
        if (left <= 0)
            return true;
    }
}

} // namespace

Clock::duration Comeback::WaitAfter(Clock::duration lasted) {
    m_short = lasted >= kHolds ? 0 : m_short + 1;
    if (m_short < 2)
        return Clock::duration::zero();
    constexpr unsigned kMostDoublings = 6; // beyond the longest wait
    return std::min<Clock::duration>(kFirstWait * (1U << std::min(m_short - 2, kMostDoublings)),
                                     kLongestWait);
}

void Converse(Report& report, const Reconnecting& again, int stop, const std::function<End()>& conversation) {
    Comeback comeback;
    for (;;) {
        report.taken.reset();
        report.reason.clear();
        try {
            report.end = conversation();
        } catch (const Ended& ended) {
            report.end = ended.end;
            report.reason = ended.what();
        }
        report.everTaken = report.everTaken || report.taken;
        if (report.end != End::Lost || !again.enabled || !report.everTaken)
            return;
        const auto wait =
            comeback.WaitAfter(report.taken ? Clock::now() - *report.taken : Clock::duration::zero());
        if (again.lost)
            again.lost(report.reason, wait);
        ++report.losses;
        if (!Sleep(wait, stop)) {
            report.end = End::Stopped;
            return;
        }
    }
}

} // namespace phone
