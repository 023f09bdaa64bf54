// Who has signed in with a browser, and for how long that holds.
//
// A browser's cookie holds the secret of its session. The session hangs on what the user's password was
// stored as: once that has changed, whoever changed it, the session is over.
#pragma once

#include "host/users/secret_table.h"

namespace host {

// Ends the connection of that descriptor, which is kept by another one until then. Empty where there is no
// descriptor left for that.
std::function<void()> EndOfConnection(int fd);

// Thread-safe.
class Sessions {
public:
    using Time = SecretRecord::Time;
    static constexpr std::chrono::hours kIdle{12};
    static constexpr std::chrono::days kLongest{30};

    struct Owner {
        std::string login;
        bool camera = false; // by a camera's password
    };
    // What the present password of an owner is stored as, in a digest; empty where there is no such user.
    using DigestOf = std::function<std::string(const Owner&)>;

    // `digestOf` is called with the lock held, and calls nothing
    // here.
    Sessions(std::shared_ptr<Store> store, DigestOf digestOf);
    // In a file of the data folder; empty: in memory alone.
    static std::shared_ptr<Store> InFile(std::string path) {
        return SecretTable<Session>::InFile(std::move(path));
    }
    Sessions(const Sessions&) = delete;
    Sessions& operator=(const Sessions&) = delete;

    // Begins one, for requests under TLS or for those in clear; returns what the cookie holds. A person has a
    // few browsers: who signs in again and again ends the oldest session.
    std::string Begin(const Owner& owner, bool secure, Time now = SecretRecord::Now());
    // Nothing where there is no such session, or it is over. It counts as used.
    std::optional<Owner> Find(std::string_view id, bool secure, Time now = SecretRecord::Now());
    void End(std::string_view id);
    // All of that login.
    void EndAllOf(std::string_view login);
    // Ends those that are over: to be called twice a second.
    void Sweep(Time now = SecretRecord::Now()) { m_table.Sweep(now); }
    // Writes when each was last used; false when that was not possible.
    bool Save() { return m_table.Save(); }

    // Calls `end` as soon as the session is over; until then the session counts as used. Null where there is
    // no such session any more.
    using Held = std::shared_ptr<const void>;
    [[nodiscard]] Held Hold(std::string_view id, std::function<void()> end) {
        return m_table.Hold(Sha256(id), std::move(end));
    }

private:
    struct Session : SecretRecord {
        static constexpr std::string_view kTitle =
            "# Who has signed in with a browser: hash of the session's number, login, kind of login, way, "
            "made, last used, digest of what the password is stored as.";
        static std::optional<Session> Read(std::span<const std::string> fields);
        [[nodiscard]] std::string Line() const;
        [[nodiscard]] const std::string& Owner() const { return owner.login; }

        Sessions::Owner owner;
        bool secure = false;
    };

    const DigestOf m_digestOf;
    SecretTable<Session> m_table;
};

} // namespace host
