// Tells an MQTT broker of events, and keeps there what is so now of each camera.
#pragma once

#include <functional>
#include <memory>
#include <string>

#include "host/notices/channel.h"

namespace host {

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

} // namespace host
