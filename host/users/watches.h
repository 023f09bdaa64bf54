// Connections that show cameras: each of them ends once its visitor sees no longer what it shows.
#pragma once

#include <functional>
#include <list>
#include <memory>
#include <mutex>
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

    // `rightsOf` is called with the lock held, and calls nothing here.
    explicit Watches(RightsOf rightsOf) : m_rightsOf(std::move(rightsOf)) {}
    Watches(const Watches&) = delete;
    Watches& operator=(const Watches&) = delete;

    // Calls `end` once, with the lock held, when the visitor's rights are no longer enough. Until then, and
    // behind the end of this object, what is returned stands for the connection.
    using Held = std::shared_ptr<const void>;
    [[nodiscard]] Held Hold(Sessions::Owner visitor, MayGoOn mayGoOn, std::function<void()> end);
    // Ends those whose time has come: to be called twice a second.
    void Sweep();

private:
    struct Watch {
        Sessions::Owner visitor;
        MayGoOn mayGoOn;
        std::function<void()> end; // empty once it has been called
    };
    struct State {
        std::mutex mutex; // everything below
        std::list<Watch> watches;
    };

    const RightsOf m_rightsOf;
    const std::shared_ptr<State> m_state = std::make_shared<State>(); // what is held may outlive the object
};

} // namespace host
