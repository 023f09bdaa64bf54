// Tells of events by HTTP: each one is a POST of JSON to an address of somebody else's server.
#pragma once

#include <memory>

#include "host/notices/channel.h"

namespace host {

// Headers of a notice:
//
//   Content-Type: application/json
//   User-Agent: Morrowstream/VERSION
//   X-Morrowstream-Event: the event's number, by which a second time is known; 0 for a test
//   X-Morrowstream-Time: Unix seconds, when it was sent
//   X-Morrowstream-Signature: sha256=HEX, where there is a secret: HMAC-SHA256, keyed by it, of the time
//   above, a
//                             point and the body
//
// Taken with any status of 2xx. Statuses of 4xx that say something of the notice alone refuse it; all else is
// tried again, redirections included: they are not followed. Certificates are verified by the system's
// authorities.
std::unique_ptr<NoticeChannel> MakeWebhook(const NoticeSignals& signals);

} // namespace host
