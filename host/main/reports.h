// What the host says to who started it.
#pragma once

#include <string>
#include <vector>

#include "host/feed/feed_table.h"
#include "host/http/endpoint.h"
#include "host/main/data_folder.h"
#include "host/main/demo.h"
#include "host/main/options.h"
#include "host/site/links/pages.h"
#include "host/tls/certificates.h"
#include "host/users/authenticator.h"

namespace host {

struct WelcomeParts {
    const Options& options;
    const DataFolder& data;
    const std::vector<std::string>& oddLogins; // of users whose phones cannot sign in
    bool adminMade = false;                    // at this start
    const Endpoint& listening;
    const std::string& authority; // where others reach this server; empty where nobody does
    const Certificates* certificates = nullptr;
    const FeedTable& feeds;
    const Authenticator& authenticator;
    const LinkPages& links;
};

// When it has started: where to go, whom to be there, and how a phone becomes a camera. Makes a link for the
// first camera without a phone, and says it.
void SayWelcome(const WelcomeParts& parts);

// While it runs: a line for each camera, or one for many.
void SayStatus(const std::vector<CameraFigures>& cameras);

// At the end: a line for each camera. False when a picture of the demo's phones is missing.
bool SaySummary(const std::vector<CameraFigures>& cameras, const DemoResults& results);

} // namespace host
