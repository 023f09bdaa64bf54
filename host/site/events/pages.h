// What has happened, for people and for programs.
#pragma once

#include <functional>
#include <memory>

#include "host/events/event_log.h"
#include "host/http/answer.h"
#include "host/http/event_loop.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/stream.h"

namespace host {

struct EventPages {
    EventLog& events;
    const Limits& limits;
    EventLoops& loops;
    OtherEvents* others = nullptr; // null: this host is one by itself

    // Which events a visitor may see. Any thread, for as long as the visit lasts.
    using Sees = std::function<bool(const Event&)>;

    // /api/v1/events: {"events":[...],"next":N}, newest first. In the query may stand: kind (words, with
    // commas between them), camera, from and to (Unix milliseconds, or RFC 3339), limit (1 to 1000, 100
    // without it), and before, the number that `next` of the answer before had; `next` is null behind the
    // last one. In a cluster the events are those of all hosts that answer, in the order of their times;
    // numbers are each host's own, and `next` is a text, of "HOST:NUMBER" with commas between them.
    [[nodiscard]] Answer List(const Request& request, Sees sees) const;
    // The socket of the page: an array of new events in each message, oldest first; in a cluster those of all
    // hosts. Whoever asks for the list behind the first message, which may be empty, misses nothing.
    void StartNews(Stream stream, const Request& request, Sees sees, std::shared_ptr<const void> held) const;
};

} // namespace host
