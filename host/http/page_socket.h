// A WebSocket to a page of this host.
#pragma once

#include <cstdint>
#include <functional>
#include <memory>
#include <string_view>

#include "host/base/wait.h"
#include "host/http/event_loop.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/stream.h"

namespace host {

// One page's connection. It lives on one of the event loops and is called there alone, so nothing here needs
// a lock; whatever it is asked, it answers without waiting. One message is written at a time. The library
// that does it stays behind this header: it takes long to compile.
class PageSocket {
public:
    PageSocket(const PageSocket&) = delete;
    PageSocket& operator=(const PageSocket&) = delete;
    virtual ~PageSocket();

    // Begins, on the thread of its loop. The object ends, on any thread, when the page has left, was closed,
    // or the server has stopped. `held` is let go of behind everything else.
    static void Start(std::unique_ptr<PageSocket> page, std::shared_ptr<const void> held);

protected:
    // What a page and the host tell each other when they end a connection (RFC 6455, 7.4).
    using Code = std::uint16_t;
    static constexpr Code kNormal = 1000;
    static constexpr Code kGoingAway = 1001;
    static constexpr Code kPolicy = 1008;
    static constexpr Code kRestart = 1012; // come again soon
    struct Manner {
        std::size_t longest = kMaxPageMessageBytes; // of the page's messages
        Code atStop = kGoingAway;
    };

    // Takes the connection. The request asks for a WebSocket. The loop outlives the object.
    PageSocket(EventLoop& loop, Stream stream, const Request& request, const Limits& limits,
               const Manner& manner = {kMaxPageMessageBytes, kGoingAway});

    // The page is there. Called once, first.
    virtual void OnOpen() = 0;
    // A text message of the page. False for one that no page of this host sends: the connection ends.
    virtual bool OnMessage(std::string_view message) = 0;
    // The same for a binary one. Most pages send none.
    virtual bool OnBinary(std::string_view /*message*/) { return false; }
    // Sends the next message if one is due. Called only while none is being written, behind all that can
    // change what is due.
    virtual void SendNext() = 0;

    // Begins to write a message; what it is made of stays as it is until SendNext is called again. At most
    // once for each SendNext.
    void Text(std::string_view text);
    void Binary(std::string_view first, std::string_view second);

    // Calls `happened`, and then SendNext, for each signal from now on. The wake-up lives as long as this.
    void Watch(Wakeup& wakeup, std::function<void()> happened);
    // Calls `happened`, and then SendNext, at that time; a later call replaces an earlier one of that timer.
    using TimerPtr = std::unique_ptr<EventLoop::Timer>;
    [[nodiscard]] TimerPtr MakeTimer();
    void At(const TimerPtr& timer, Clock::time_point when, std::function<void()> happened);
    // Another descriptor that this connection waits for, with a duplicate of its own.
    class Side;
    struct SideEnd {
        void operator()(Side* side) const;
    };
    using SidePtr = std::unique_ptr<Side, SideEnd>;
    [[nodiscard]] SidePtr MakeSide(int fd);
    // Calls `happened`, and then SendNext, once, when the descriptor can be read (POLLIN) or written
    // (POLLOUT). For each of the two one call at a time waits.
    void Once(const SidePtr& side, short event, std::function<void()> happened);
    // Calls `work`, which may wait, on another thread; nothing else of this object is called before it has
    // returned. Then `then` is called, and SendNext. The last thing that a call does.
    void Elsewhere(
        std::function<void()> work, std::function<void()> then = [] {});

    // Sends nothing more, tells the page so, and ends.
    void Close(Code code = kNormal);

    const Limits m_limits;
    const Manner m_manner;

private:
    class Link;
    const std::shared_ptr<Link> m_link;
};

} // namespace host
