// Sends motion JPEG to all who watch: on each event loop those of one camera together.
#pragma once

#include <memory>
#include <string_view>
#include <vector>

#include "host/base/counters.h"
#include "host/feed/camera_feed.h"
#include "host/http/event_loop.h"
#include "host/http/limits.h"
#include "host/http/stream.h"

namespace host {

// A watcher gets the newest picture only, and the next one when the one before has reached it; what came
// between is skipped. Of a watcher that was quick so far this is taken for granted for half a second. A
// picture's bytes are there once for all who get it, so one who is slow costs what he has not taken of one
// picture, and nothing waits behind it.
class LiveSenders {
public:
    static constexpr std::string_view kType = "multipart/x-mixed-replace; boundary=morrowstream-picture";
    // What stands before the first picture. A browser shows a part when the next one begins, so the head of
    // the next part follows each picture in the same write; that is also why no part can tell its length.
    static constexpr std::string_view kFirstPart =
        "--morrowstream-picture\r\nContent-Type: image/jpeg\r\n\r\n";
    static constexpr std::string_view kNextPart =
        "\r\n--morrowstream-picture\r\nContent-Type: image/jpeg\r\n\r\n";

    // What it is given outlives it, and the watchers end before it does.
    LiveSenders(EventLoops& loops, const Limits& limits, Counters& counters);
    ~LiveSenders();

    // Takes a connection that has got all up to the first picture, and sends pictures until the watcher
    // leaves, stalls, or the server stops; then it lets go of `held`. Any thread.
    void Add(Stream stream, FeedPtr feed, std::shared_ptr<const void> held);

private:
    class Watcher;
    using WatcherPtr = std::shared_ptr<Watcher>;
    class Group;
    class Board;

    EventLoops& m_loops;
    const Limits& m_limits;
    Counters& m_counters;
    std::vector<std::unique_ptr<Board>> m_boards; // by the loop's number; each belongs to its thread
};

} // namespace host
