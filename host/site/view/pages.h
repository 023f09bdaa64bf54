// /view/KEY: one source for a person at a browser, through the same packer that a viewing phone gets.
//
// The address gives the page, and the page opens it once more as a WebSocket:
//
//   page -> host, text   "set TEXT", the packer's parameters as a phone sends them (packer/frame_packer.h);
//   the
//                        first one begins the stream, a later one changes it from the next picture on.
//                        "ack N": picture N is drawn. The next one goes out after that, so one is on its way
//                        at a time and the rest is skipped.
//   host -> page, binary one packed picture (packer/framing.h); numbers go on over a change of parameters
//   host -> page, text   {"type":"view","picture":true}, each second: whether the source has a picture
//                        now, or the placeholder is shown. {"type":"gone"}: the source is no more; the
//                        connection ends
//
// `flimit` ends the stream, and with it the connection.
#pragma once

#include "host/base/counters.h"
#include "host/http/event_loop.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/stream.h"
#include "host/sources/source_table.h"
#include "kit/packer/frame_packer.h"

namespace host {

struct ViewPages {
    SourceTable& sources;
    kit::PackerCounters& packers;
    const Limits& limits;
    Counters& counters;
    EventLoops& loops;

    // The source of a percent-encoded key; null when there is none, for who has these rights.
    [[nodiscard]] kit::SourcePtr SourceOf(std::string_view encoded, const Rights& rights) const;
    // Takes the connection, whose request asks for a WebSocket, and lets go of `held` when the page has left,
    // the stream is at its end or the server stops.
    void Start(Stream stream, const Request& request, kit::SourcePtr source,
               std::shared_ptr<const void> held) const;
};

} // namespace host
