// Puts together everything that answers at this server's addresses.
#pragma once

#include <memory>
#include <string>

#include "host/http/proxy.h"
#include "host/notices/notices.h"
#include "host/preferences/store.h"
#include "host/recordings/recorder.h"
#include "host/site/account/pages.h"
#include "host/site/addresses.h"
#include "host/site/api/pages.h"
#include "host/site/events/pages.h"
#include "host/site/links/pages.h"
#include "host/site/live/pages.h"
#include "host/site/mobile/pages.h"
#include "host/site/monitor/pages.h"
#include "host/site/phone/pages.h"
#include "host/site/recordings/pages.h"
#include "host/site/settings/pages.h"
#include "host/site/tiny/pages.h"
#include "host/site/trust/pages.h"
#include "host/site/users/pages.h"
#include "host/site/view/pages.h"
#include "host/tls/certificates.h"
#include "host/users/password.h"
#include "host/users/watches.h"

namespace host {

// The parts of a site. All of them outlive it; a page sees those alone that it is handed.
struct SiteParts {
    FeedTable& feeds;
    SourceTable& sources;
    kit::WebHandlerHost& handlers;
    Authenticator& authenticator;
    Sessions& sessions;
    Phones& phones;
    Tokens& tokens;
    std::shared_ptr<Store> links; // of phones' links; null: they end with the host
    Settings& settings;
    EventLog& events;
    PreferenceStore& preferences;
    Counters& counters;
    kit::PackerCounters& packers;
    const Wakeup& stop; // raised once, for good
    Limits limits{};
    bool demo = false; // of this machine alone
    // Null: TLS is not spoken.
    const Certificates* certificates = nullptr;
    // Plain HTTP gets everything, also from other machines.
    bool allowPlain = true;
    TrustedProxies proxies{};
    // The code of the language that the component's texts are in since the start.
    std::string language{};
    // Where it listens, for the names of cookies.
    std::uint16_t port = 0;
    // Of a first password that stands in a file.
    std::function<void(std::string_view login)> forgetPassword{};
    // Where others reach this server, "ADDR:PORT"; empty where nobody but this machine does.
    std::string authority{};
    // Null: nobody is told of events.
    Notices* notices = nullptr;
    // Null: nothing is recorded.
    const Recorder* recorder = nullptr;
    RecordingSource* recordings = nullptr;
    // In a cluster: this host's name among the others, and what passes between them; else empty.
    std::string node{};
    std::function<ClusterFigures()> cluster{};
    OtherEvents* otherEvents = nullptr;
};

struct Site {
    explicit Site(const SiteParts& parts)
        : limits(parts.limits), stop(parts.stop), counters(parts.counters), certificates(parts.certificates),
          allowPlain(parts.allowPlain || parts.certificates == nullptr), proxies(parts.proxies),
          pageToken(RandomPassword()), shares(limits),
          watches([&authenticator = parts.authenticator](
                      const Sessions::Owner& visitor) { return authenticator.RightsOf(visitor); },
                  [&authenticator = parts.authenticator](const Sessions::Owner& visitor) {
                      return authenticator.DigestOf(visitor);
                  }),
          loops(stop), senders(loops, limits, counters), language(parts.language),
          cookie(UserCookie(parts.port)), phoneCookie(PhoneCookie(parts.port)),
          access{parts.authenticator, parts.sessions, parts.tokens, cookie, counters, parts.demo},
          live{parts.feeds, parts.sources, limits, counters, stop, parts.demo, loops, senders},
          view{parts.sources, parts.packers, limits, counters, loops}, tiny{parts.feeds, parts.sources,
                                                                            parts.packers, limits.staleAfter,
                                                                            parts.language},
          monitor{parts.feeds,   counters,       parts.packers, parts.settings, parts.preferences,
                  parts.notices, parts.recorder, parts.node,    parts.cluster},
          settings{parts.settings, parts.events, parts.preferences,
                   parts.language, pageToken,    parts.certificates},
          mobile{parts.handlers, parts.feeds, parts.sources, parts.authenticator, shares, limits,
                 counters,       stop,        language},
          events{parts.events, limits, loops, parts.otherEvents}, links{parts.authenticator,
                                                                        parts.authority,
                                                                        parts.certificates != nullptr,
                                                                        language,
                                                                        [this](const Request& request,
                                                                               std::string_view login) {
                                                                            return mobile.Content(request,
                                                                                                  login);
                                                                        },
                                                                        parts.links},
          phone{{parts.handlers, parts.feeds, parts.authenticator, parts.phones, counters},
                phoneCookie,
                limits,
                stop,
                loops,
                language,
                [this](std::string_view token) { return links.Spend(token); }},
          trust{parts.certificates, language},
          account{parts.authenticator, parts.sessions, parts.events, cookie, language, parts.forgetPassword},
          users{parts.authenticator, parts.settings, parts.events, language, parts.forgetPassword},
          recordings{parts.recordings, parts.events, limits, stop, exports},
          api{parts.settings, parts.events,      parts.feeds,   parts.authenticator, parts.phones,
              parts.tokens,   parts.preferences, parts.notices, parts.forgetPassword} {}
    Site(const Site&) = delete;
    Site& operator=(const Site&) = delete;

    const Limits limits;
    const Wakeup& stop;
    Counters& counters;
    const Certificates* const certificates; // null: TLS is not spoken
    const bool allowPlain;
    const TrustedProxies proxies;
    // A page of this host sends it with each change; a page of another site cannot know it.
    const std::string pageToken;
    mutable ShareTable shares; // thread-safe
    mutable Watches watches;   // thread-safe
    // Watchers and pages, on threads that they share.
    mutable EventLoops loops;
    mutable LiveSenders senders;
    mutable ExportTable exports; // thread-safe
    // The server's, for whoever asks for none that there are texts in.
    const std::string language;

    const SessionCookie cookie;
    const SessionCookie phoneCookie;
    const Access access;
    const LivePages live;
    const ViewPages view;
    const TinyPages tiny;
    const MonitorPages monitor;
    const SettingsPages settings;
    const MobilePages mobile;
    const EventPages events;
    const LinkPages links;
    const PhonePages phone;
    const TrustPages trust;
    const AccountPages account;
    const UsersPages users;
    const RecordingPages recordings;
    const ApiPages api;
};

} // namespace host
