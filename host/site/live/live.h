// /live/NAME: motion JPEG for everything that is not the page.
#pragma once

#include "host/feed/camera_feed.h"
#include "host/site/services.h"

namespace host {

// Sends pictures until the watcher leaves, stalls, or the server stops. A watcher gets the newest picture
// only, and the next one when the one before has left this machine; what came between is skipped.
void ServeLive(int fd, const FeedPtr& feed, bool headOnly, const Services& services);

} // namespace host
