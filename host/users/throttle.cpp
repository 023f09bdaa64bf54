#include "host/users/throttle.h"

#include <algorithm>
#include <tuple>
#include <utility>

#include "host/users/make_room.h"

namespace host {
namespace {

using namespace std::chrono_literals;

constexpr unsigned kFree = 5;
constexpr std::chrono::milliseconds kFirstDelay = 250ms;
constexpr std::chrono::milliseconds kLongestDelay = 4000ms;
constexpr Clock::duration kForgetAfter = 10min;
constexpr std::size_t kWrongOfAddress = 60;
constexpr Clock::duration kAddressSpan = 10min;
constexpr std::size_t kWrongAtLogin = 100;
constexpr Clock::duration kLoginSpan = 1h;
// Of each kind of record.
constexpr std::size_t kMostRecords = 4096;

void Count(std::map<std::string, RecentCount, std::less<>>& counts, const std::string& key, std::size_t limit,
           Clock::duration span, Clock::time_point now) {
    auto found = counts.find(key);
    if (found == counts.end()) {
        MakeRoom(
            counts, kMostRecords, [now](const RecentCount& count) { return count.IsOver(now); },
            &RecentCount::Newest);
        found = counts.emplace(key, RecentCount(limit, span)).first;
    }
    found->second.Add(now);
}

} // namespace

void RecentCount::Add(Clock::time_point now) {
    m_newest = now;
    if (m_times.size() < m_limit) {
        m_times.push_back(now);
        return;
    }
    m_times[m_oldest] = now;
    m_oldest = (m_oldest + 1) % m_limit;
}

Throttle::Attempt::Attempt(Attempt&& other) noexcept
    : m_throttle(std::exchange(other.m_throttle, nullptr)), m_kind(other.m_kind),
      m_login(std::move(other.m_login)), m_address(std::move(other.m_address)), m_turn(other.m_turn) {}

// What was in the place of the new one comes to its end with the other.
Throttle::Attempt& Throttle::Attempt::operator=(Attempt&& other) noexcept {
    std::swap(m_throttle, other.m_throttle);
    std::swap(m_kind, other.m_kind);
    m_login.swap(other.m_login);
    m_address.swap(other.m_address);
    std::swap(m_turn, other.m_turn);
    return *this;
}

Throttle::Attempt::~Attempt() {
    if (m_throttle != nullptr)
        m_throttle->Finish(*this, Outcome::Wrong);
}

void Throttle::Attempt::Right() {
    m_throttle->m_places.Note(m_login, m_address);
    std::exchange(m_throttle, nullptr)->Finish(*this, Outcome::Right);
}

void Throttle::Attempt::Withdraw() {
    std::exchange(m_throttle, nullptr)->Finish(*this, Outcome::Withdrawn);
}

// The wait behind that many tries.
std::chrono::milliseconds Throttle::DelayAfter(unsigned tries) noexcept {
    if (tries < kFree)
        return 0ms;
    return std::min(kFirstDelay * (1U << std::min(tries - kFree, 10U)), kLongestDelay);
}

Throttle::Pair& Throttle::PairOf(const PairKey& key, Clock::time_point now) {
    auto found = m_pairs.find(key);
    if (found == m_pairs.end()) {
        MakeRoom(
            m_pairs, kMostRecords, [now](const Pair& pair) { return now - pair.last > kForgetAfter; },
            &Pair::last);
        found = m_pairs.emplace(key, Pair{}).first;
    } else if (now - found->second.last > kForgetAfter) {
        found->second = {};
    }
    return found->second;
}

std::optional<Throttle::Attempt> Throttle::Reserve(Kind kind, std::string_view login,
                                                   const std::string& address, Clock::time_point now,
                                                   std::chrono::seconds* retryAfter) {
    const std::lock_guard guard(m_mutex);
    if (!IsHeardLocked(login, address, now)) {
        *retryAfter = std::chrono::ceil<std::chrono::seconds>(m_addresses.find(address)->second.End() - now);
        return std::nullopt;
    }
    Pair& pair = PairOf({kind, std::string(login), address}, now);
    const auto turn = std::max(pair.next, now);
    if (turn - now > m_maxWait) {
        *retryAfter = std::chrono::ceil<std::chrono::seconds>(turn - now);
        return std::nullopt;
    }
    ++pair.tries;
    pair.last = now;
    pair.next = turn + DelayAfter(pair.tries);
    return Attempt(*this, kind, login, address, turn);
}

// A try counts at the time of its turn: that is when it was looked at.
void Throttle::Finish(const Attempt& attempt, Outcome outcome) {
    const std::lock_guard guard(m_mutex);
    if (outcome == Outcome::Wrong) {
        Count(m_addresses, attempt.m_address, kWrongOfAddress, kAddressSpan, attempt.m_turn);
        Count(m_logins, attempt.m_login, kWrongAtLogin, kLoginSpan, attempt.m_turn);
        return;
    }
    const auto found = m_pairs.find({attempt.m_kind, attempt.m_login, attempt.m_address});
    if (found == m_pairs.end() || found->second.tries == 0)
        return;
    Pair& pair = found->second;
    --pair.tries;
    if (outcome == Outcome::Withdrawn)
        return;
    // A record that says nothing takes no place: thousands of phones would push those of guessers out.
    if (pair.tries == 0) {
        m_pairs.erase(found);
        return;
    }
    // Who mistyped before waits no longer. One try is left free and not five: somebody else may guess at this
    // login from the same address meanwhile.
    pair.tries = std::min(pair.tries, kFree - 1);
    pair.next = attempt.m_turn;
}

bool Throttle::IsHeard(std::string_view login, const std::string& address, Clock::time_point now) {
    const std::lock_guard guard(m_mutex);
    return IsHeardLocked(login, address, now);
}

bool Throttle::IsHeardLocked(std::string_view login, const std::string& address,
                             Clock::time_point now) const {
    const auto found = m_addresses.find(address);
    return found == m_addresses.end() || !found->second.IsReached(now) || m_places.Knows(login, address);
}

bool Throttle::IsLast(std::string_view login, Clock::time_point now) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_logins.find(login);
    return found != m_logins.end() && found->second.IsReached(now);
}

} // namespace host
