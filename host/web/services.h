// What a connection of the web server works with. Everything outlives the server.
#pragma once

#include <string>

#include "host/feed/feed_table.h"
#include "host/handler/web_handler_host.h"
#include "host/users/authenticator.h"
#include "host/web/counters.h"
#include "host/web/limits.h"
#include "host/web/net.h"

namespace host {

struct Services {
    FeedTable& feeds;
    WebHandlerHost& handlers;
    Authenticator& authenticator;
    const Wakeup& stop; // raised once, for good
    Limits limits;
    // Demo users exist: everybody on this machine may watch.
    bool demo = false;
    Clock::time_point started = Clock::now();
    mutable Counters counters{};
};

} // namespace host
