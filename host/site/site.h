// Everything that answers at this server's addresses, put together once.
#pragma once

#include <memory>
#include <string>

#include "host/site/access.h"
#include "host/site/links/pages.h"
#include "host/site/live/pages.h"
#include "host/site/mobile/pages.h"
#include "host/site/monitor/pages.h"
#include "host/site/settings/pages.h"
#include "host/site/tiny/pages.h"
#include "host/site/view/pages.h"

namespace host {

// What a site is made of. All of it outlives the site; no page sees more of it than it is handed.
struct SiteParts {
    FeedTable& feeds;
    SourceTable& sources;
    WebHandlerHost& handlers;
    Authenticator& authenticator;
    Settings& settings;
    Counters& counters;
    PackerCounters& packers;
    const Wakeup& stop; // raised once, for good
    Limits limits{};
    bool demo = false;      // there are demo users
    std::string language{}; // the code of the one that the component's texts are in, since the start
    std::string
        authority{}; // where others reach this server, "ADDR:PORT"; empty where nobody but this machine does
};

struct Site {
    explicit Site(const SiteParts& parts);
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    const Limits limits;
    const Wakeup& stop;
    Counters& counters;
    // What a page of this host sends with each change, and a page of somebody else's cannot know.
    const std::string pageToken;

    const Access access;
    const LivePages live;
    const ViewPages view;
    const TinyPages tiny;
    const MonitorPages monitor;
    const SettingsPages settings;
    const MobilePages mobile;
    const LinkPages links;
};

} // namespace host
