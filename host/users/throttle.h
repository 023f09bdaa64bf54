// Limits how fast passwords can be guessed.
//
//   from an address, at a login   five wrong ones are free; then each try waits for its turn, 250 ms at first
//                                 and twice as long each time, up to 4 s
//   from an address               after 60 wrong ones in ten minutes only logins are looked at that have
//                                 signed in from there before (SignInPlaces)
//   at a login, from anywhere     after 100 wrong ones in an hour its slow checks come last (CheckQueue)
//
// A try takes its turn before anything is looked at, and counts as a wrong one from then on until it turns
// out right. So many connections at a time guess no faster than one, and nobody waits for somebody else's
// login.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "host/base/wait.h"
#include "host/users/sign_in_places.h"

namespace host {

// Whether something has happened a number of times within the last so much time.
class RecentCount {
public:
    RecentCount(std::size_t limit, Clock::duration span) : m_limit(limit), m_span(span) {}
    void Add(Clock::time_point now);
    [[nodiscard]] bool IsReached(Clock::time_point now) const noexcept {
        return m_times.size() == m_limit && now - m_times[m_oldest] < m_span;
    }
    // Nothing of it counts any more.
    [[nodiscard]] bool IsOver(Clock::time_point now) const noexcept {
        return m_times.empty() || now - m_newest >= m_span;
    }
    [[nodiscard]] Clock::time_point Newest() const noexcept { return m_newest; }
    // When it is not reached any more.
    [[nodiscard]] Clock::time_point End() const noexcept { return m_times[m_oldest] + m_span; }

private:
    std::size_t m_limit;
    Clock::duration m_span;
    std::vector<Clock::time_point> m_times; // a ring once it is full
    std::size_t m_oldest = 0;
    Clock::time_point m_newest;
};

// Thread-safe.
class Throttle {
public:
    enum class Kind { SignIn, Record }; // what a password is tried by: each has its own turns

    // A try that has got its turn. Wrong, unless something else is said before its end.
    class Attempt {
    public:
        Attempt(Attempt&& other) noexcept;
        Attempt& operator=(Attempt&& other) noexcept;
        ~Attempt();

        [[nodiscard]] Clock::time_point Turn() const noexcept { return m_turn; }
        // The password is right: this try was none, and the login is known at its address from now on.
        void Right();
        // Nobody has looked at the password.
        void Withdraw();

    private:
        friend class Throttle;
        Attempt(Throttle& throttle, Kind kind, std::string_view login, const std::string& address,
                Clock::time_point turn)
            : m_throttle(&throttle), m_kind(kind), m_login(login), m_address(address), m_turn(turn) {}

        Throttle* m_throttle; // null once it is said what this try was
        Kind m_kind;
        std::string m_login;
        std::string m_address;
        Clock::time_point m_turn;
    };

    // A sender whose turn is further away than `maxWait` is turned away. The places outlive the object.
    Throttle(std::chrono::milliseconds maxWait, SignInPlaces& places)
        : m_maxWait(maxWait), m_places(places) {}

    // Nothing for a sender that is turned away; `retryAfter` is how long it should stay away then.
    std::optional<Attempt> Reserve(Kind kind, std::string_view login, const std::string& address,
                                   Clock::time_point now, std::chrono::seconds* retryAfter);
    // Whether passwords of this login from this address are looked at now: asked again before a slow check,
    // which may have waited.
    [[nodiscard]] bool IsHeard(std::string_view login, const std::string& address, Clock::time_point now);
    // Whether a login's slow checks come last.
    [[nodiscard]] bool IsLast(std::string_view login, Clock::time_point now);

private:
    struct Pair {
        unsigned tries = 0;     // that were not right, those under way included
        Clock::time_point next; // no turn is before
        Clock::time_point last; // the newest try
    };
    using PairKey = std::tuple<Kind, std::string, std::string>; // with login and address

    static std::chrono::milliseconds DelayAfter(unsigned tries) noexcept;
    Pair& PairOf(const PairKey& key, Clock::time_point now);
    enum class Outcome { Right, Wrong, Withdrawn };
    void Finish(const Attempt& attempt, Outcome outcome);
    // With m_mutex held.
    bool IsHeardLocked(std::string_view login, const std::string& address, Clock::time_point now) const;

    const std::chrono::milliseconds m_maxWait;
    SignInPlaces& m_places;
    std::mutex m_mutex; // everything below
    std::map<PairKey, Pair> m_pairs;
    std::map<std::string, RecentCount, std::less<>> m_addresses;
    std::map<std::string, RecentCount, std::less<>> m_logins;
};

} // namespace host
