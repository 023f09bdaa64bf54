// The ways to tell somebody else of events.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <optional>
#include <string>

#include "host/base/wait.h"
#include "host/preferences/preferences.h"

namespace host {

// What is told: an event, or a test.
struct Notice {
    std::uint64_t number = 0; // of the event; 0 for a test
    std::string kind;         // the event's word; "test"
    std::string camera;       // empty for what is of no one camera
    std::string json;         // of the event, as it stands in the journal
};

// What a thread of a line waits for and stops at.
struct NoticeSignals {
    Wakeup wakeup; // something is to be looked at: an event, a change, a test
    Wakeup stop;   // raised once, for good
};

struct NoticeOutcome {
    enum class Result {
        Taken,
        Refused, // this notice, for good: the next one may be taken
        Failed,  // may be tried again
    };
    Result result = Result::Failed;
    std::string text; // one line for people, in English; nothing secret in it
};

// Called by the thread of its line alone, for which it may wait: within its own deadlines, and until the stop
// signal.
class NoticeChannel {
public:
    virtual ~NoticeChannel() = default;

    // Whether there is anybody to be told, by what holds from now on.
    virtual bool SetUp(const Preferences& preferences) = 0;
    [[nodiscard]] virtual bool Wants(const std::string& kind) const = 0;
    virtual NoticeOutcome Send(const Notice& notice) = 0;
    // What is to be done meanwhile. Back at the moment, at the wake-up, or before.
    virtual void Rest(Clock::time_point until) = 0;
};

// --- Webhook: each event is a POST of JSON to an address of somebody else's server ---

// Headers of a notice:
//
//   Content-Type: application/json
//   User-Agent: Morrowstream/VERSION
//   X-Morrowstream-Event: the event's number, by which a second time is known; 0 for a test
//   X-Morrowstream-Time: Unix seconds, when it was sent
//   X-Morrowstream-Signature: sha256=HEX, where there is a secret: HMAC-SHA256, keyed by it, of that time, a
//                             point and the body
//
// Taken with any status of 2xx. Statuses of 4xx that say something of the notice alone refuse it; all else is
// tried again, redirections included: they are not followed.
std::unique_ptr<NoticeChannel> MakeWebhook(const NoticeSignals& signals);

// --- MQTT: a broker is told of events, and keeps what is so now of each camera ---

// What the channel looks at by itself. Called on its thread.
struct NoticeAccess {
    // Whether a phone sends as that camera.
    std::function<bool(const std::string& camera)> isConnected;
    // The latest picture of a camera as a JPEG file; empty without one.
    std::function<std::string(const std::string& camera)> picture;
};

// Topics, behind the begin that the preferences have; a camera's name is percent-encoded where a topic could
// not have it:
//
//   status                  "online" or "offline" (the last will); retained, as all but events are
//   event                   each event that is told of, as JSON
//   cameras/NAME/event      the same, of this camera
//   cameras/NAME/connected  "ON" or "OFF"
//   cameras/NAME/motion     "ON" or "OFF"
//   cameras/NAME/picture    a JPEG file, with each event of the camera
//
// All with QoS 1: an event counts as taken once the broker has said so.
std::unique_ptr<NoticeChannel> MakeMqtt(const NoticeSignals& signals, NoticeAccess access);

// --- What channels have in common ---

// Empty when a connection came about, which is closed at once; else why not, in a line. Within 5 s behind the
// look-up of the name.
std::string WhyNotReached(const std::string& server, int port);

// What may wait for as long as the system likes, which looks up names without any deadline that it would
// take. Used by one thread.
class Errand {
public:
    // Runs it on a thread of its own. Nothing at the deadline and at the stop signal: it is left to come to
    // its end, so it must own all that it uses. While that lasts, no other one is begun: nothing at once.
    std::optional<std::string> Run(std::function<std::string()> work, const Wakeup& stop,
                                   Clock::time_point deadline);

private:
    struct State;
    std::shared_ptr<State> m_left; // null: none
};

// Who vouches for the certificates of receivers: a folder, the system's, and a file beside it. The
// environment may name others, as for whatever is built on OpenSSL: SSL_CERT_DIR and SSL_CERT_FILE, read
// once.
struct Authorities {
    std::string folder;
    std::string file; // empty: none
};
const Authorities& TrustedAuthorities();

} // namespace host
