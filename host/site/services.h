// What a connection of the web server works with. Everything outlives the server.
#pragma once

#include <memory>
#include <string>

#include "host/base/counters.h"
#include "host/base/wait.h"
#include "host/component/web_handler_host.h"
#include "host/feed/feed_table.h"
#include "host/http/limits.h"
#include "host/packer/frame_packer.h"
#include "host/settings/settings.h"
#include "host/site/links/link_table.h"
#include "host/sources/source_table.h"
#include "host/users/authenticator.h"
#include "host/users/password.h"

namespace host {

struct Services {
    FeedTable& feeds;
    WebHandlerHost& handlers;
    Authenticator& authenticator;
    Settings& settings;
    const Wakeup& stop; // raised once, for good
    Limits limits;
    // Demo users exist: everybody on this machine may watch.
    bool demo = false;
    std::string language{}; // the code of the one that the component's texts are in, since the start
    Clock::time_point started = Clock::now();
    // What a page of this host sends with each change, and a page of somebody else's cannot know.
    std::string pageToken = RandomPassword();
    mutable Counters counters{};
    std::shared_ptr<SourceTable> sources{}; // what can be watched
    std::shared_ptr<LinkTable> links = std::make_shared<LinkTable>();
    std::string
        authority{}; // where others reach this server, "ADDR:PORT"; empty where nobody but this machine does
    std::shared_ptr<PackerCounters> packers = std::make_shared<PackerCounters>();
};

} // namespace host
