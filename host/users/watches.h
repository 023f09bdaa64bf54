// Connections that show cameras: each of them ends once its visitor sees no longer what it shows, or is
// somebody else than who signed in for it.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>

#include "host/users/rights.h"
#include "host/users/sessions.h"

namespace host {

// Thread-safe.
class Watches {
public:
    using RightsOf = std::function<Rights(const Sessions::Owner& visitor)>;
    // Whether a connection may go on with these.
    using MayGoOn = std::function<bool(const Rights& now)>;

    // What the visitor's password is stored as, and its kind, in a digest.
    using DigestOf = std::function<std::string(const Sessions::Owner& visitor)>;

    // Both are called with the lock held, and call nothing here.
    Watches(RightsOf rightsOf, DigestOf digestOf)
        : m_rightsOf(std::move(rightsOf)), m_digestOf(std::move(digestOf)) {}
    Watches(const Watches&) = delete;
    Watches& operator=(const Watches&) = delete;

    // How somebody has signed in: sessions and tokens end by themselves, each for reasons of its own.
    enum class By { Password, Other };

    // Calls `end` once, with the lock held, when the visitor's rights are no longer enough, or another
    // password or kind has taken the place of that of a sign-in by password. Until then, and behind the end
    // of this object, what is returned stands for the connection.
    using Held = std::shared_ptr<const void>;
    [[nodiscard]] Held Hold(Sessions::Owner visitor, By by, MayGoOn mayGoOn, std::function<void()> end);
    // Ends those whose time has come: to be called a few times a second.
    void Sweep();

private:
    struct Watch {
        Sessions::Owner visitor;
        std::string digest; // of a sign-in by password
        MayGoOn mayGoOn;
        std::function<void()> end; // empty once it has been called
    };
    struct State {
        std::mutex mutex; // everything below
        std::list<Watch> watches;
    };

    const RightsOf m_rightsOf;
    const DigestOf m_digestOf;
    const std::shared_ptr<State> m_state = std::make_shared<State>(); // what is held may outlive the object
};

} // namespace host
