#include "host/site/site.h"

#include "host/users/password.h"

namespace host {

Site::Site(const SiteParts& parts)
    : limits(parts.limits), stop(parts.stop), counters(parts.counters),
      pageToken(RandomPassword()), access{parts.authenticator, counters, parts.demo},
      live{parts.feeds, parts.sources, limits, counters, stop, parts.demo}, view{parts.sources, parts.packers,
                                                                                 limits, counters, stop},
      tiny{parts.feeds, parts.sources, parts.packers, limits.staleAfter, parts.language},
      monitor{parts.feeds, counters, parts.packers, parts.settings}, settings{parts.settings, parts.language,
                                                                              pageToken},
      mobile{parts.handlers, parts.feeds, parts.sources, parts.authenticator, limits, counters, stop},
      links{parts.authenticator, parts.authority,
            [this](const Request& request) { return mobile.Content(request); }} {}

} // namespace host
