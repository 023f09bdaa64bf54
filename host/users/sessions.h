// Who has signed in with a browser, and for how long that holds.
//
// A browser's cookie holds a random number of 256 bits; the file of the data folder (0600, replaced whole)
// has its hash alone, so who reads the file is nobody's session. Beside it stands a digest of what the user's
// password was stored as: once that has changed, whoever changed it, the session is over.
#pragma once

#include <chrono>
#include <cstdint>
#include <functional>
#include <list>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>

#include "host/base/wait.h"

namespace host {

// Thread-safe.
class Sessions {
public:
    using Time = std::chrono::sys_seconds;
    static constexpr std::chrono::hours kIdle{12};
    static constexpr std::chrono::days kLongest{30};

    struct Owner {
        std::string login;
        bool camera = false; // by a camera's password
    };
    // What the present password of an owner is stored as, in a digest; empty where there is no such user.
    using DigestOf = std::function<std::string(const Owner&)>;

    // Reads the file; empty: nothing is kept. `digestOf` is called with the lock held, and calls nothing
    // here.
    Sessions(std::string path, DigestOf digestOf);

    // Begins one, for requests under TLS or for those in clear; returns what the cookie holds.
    std::string Begin(const Owner& owner, bool secure, Time now = Now());
    // Nothing where there is no such session, or it is over. It counts as used.
    std::optional<Owner> Find(std::string_view id, bool secure, Time now = Now());
    void End(std::string_view id);
    // All of that login.
    void EndAllOf(std::string_view login);
    // Ends those that are over: to be called twice a second.
    void Sweep(Time now = Now());
    // Writes when each was last used; false when that was not possible.
    bool Save();

    // Ends a connection as soon as the session is over; until then the session counts as used. Null where
    // there is no such session any more.
    using Held = std::shared_ptr<const void>;
    [[nodiscard]] Held Hold(std::string_view id, int fd);

private:
    struct Session {
        Owner owner;
        bool secure = false;
        Time made{};
        Time used{};
        std::string digest;
        std::list<Descriptor> held;
    };
    using Map = std::map<std::string, Session, std::less<>>; // by the hash of the id

    static Time Now() { return std::chrono::floor<std::chrono::seconds>(std::chrono::system_clock::now()); }
    // With the mutex held, all of them.
    void Read();
    [[nodiscard]] bool IsOver(const Session& session, Time now) const;
    Map::iterator Erase(Map::iterator session);
    void MakeRoomFor(std::string_view login);
    bool Write();

    const std::string m_path;
    const DigestOf m_digestOf;
    std::shared_ptr<std::mutex> m_mutex = std::make_shared<std::mutex>(); // everything below
    std::shared_ptr<Map> m_sessions = std::make_shared<Map>(); // what is held may outlive the object
    bool m_changed = false;
};

} // namespace host
