// The cameras for a browser and for players: pictures as they come, and the newest one.
#pragma once

#include "host/base/counters.h"
#include "host/feed/feed_table.h"
#include "host/http/answer.h"
#include "host/http/event_loop.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/stream.h"
#include "host/site/live/motion_jpeg.h"
#include "host/sources/source_table.h"
#include "host/users/rights.h"

namespace host {

// Of what is not for everybody who may look.
struct Offered {
    bool settings = false;
    bool links = false; // by which a phone becomes a camera
};

struct LivePages {
    FeedTable& feeds;
    const SourceTable& sources;
    const Limits& limits;
    Counters& counters;
    const Wakeup& stop;
    const bool demo; // which the live page tells
    EventLoops& loops;
    LiveSenders& senders;

    // The camera of a percent-encoded name; null when there is none, for who has these rights.
    [[nodiscard]] FeedPtr CameraOf(std::string_view encoded, const Rights& rights) const;

    // /snapshot/NAME.jpg: the newest picture. `file` is what stands behind "/snapshot/".
    [[nodiscard]] Answer Snapshot(std::string_view file, const Rights& rights) const;

    // /live/NAME: motion JPEG for everything that is not the page. Takes the connection, sends the head of
    // the answer, and leaves the rest to the senders; `held` is let go of at the connection's end.
    void SendMotionJpeg(Stream stream, const FeedPtr& feed, bool headOnly,
                        std::shared_ptr<const void> held) const;

    // /tiles: the one connection of the page, a WebSocket with the state of its visitor's cameras and their
    // pictures. Takes the connection, whose request asks for a WebSocket, and lets go of `held` when the page
    // has left or the server stops. `offered`: what the page may offer to its visitor, who has these rights.
    //
    // To the page, text: {"type":"state",...}, at once, on every change and as a heartbeat. To the page,
    // binary: one picture behind a header of 20 bytes: u8 1, u8 0, u16 0, u32 camera number, u32 sequence
    // number, u64 time of arrival in Unix milliseconds; all little-endian. From the page, text: see
    // TileBoard.
    void StartTiles(Stream stream, const Request& request, const Offered& offered, const Rights& rights,
                    std::shared_ptr<const void> held) const;
};

} // namespace host
