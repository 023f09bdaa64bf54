// How a phone's connection goes to the component, and one within this process in its place.
#pragma once

#include <cerrno>
#include <memory>
#include <string>
#include <system_error>

#include <sys/socket.h>

#include "host/base/counters.h"
#include "host/base/wait.h"
#include "host/feed/feed_table.h"
#include "host/feed/phone_session.h"
#include "interfaces/IWebHandler.h"
#include "platform/com.h"
#include "platform/scope.h"

namespace host {

// Two ends, both non-blocking: the component gets `inner`, and what plays or speaks for the phone has
// `outer`. Throws std::system_error when there is no descriptor left.
struct SocketPair {
    SocketPair() {
        int ends[2] = {-1, -1};
        if (::socketpair(AF_UNIX, SOCK_STREAM | SOCK_CLOEXEC | SOCK_NONBLOCK, 0, ends) != 0)
            throw std::system_error(errno, std::generic_category(), "socketpair");
        inner = Descriptor(ends[0]);
        outer = Descriptor(ends[1]);
    }

    Descriptor inner;
    Descriptor outer;
};

// The component compares a phone's password in the calling thread's code page, by default that of the
// server's language. A phone that has come this far has signed in with UTF-8, so its record is UTF-8 as well,
// whatever language the server speaks: the thread's code page until the end of the scope.
class Utf8Scope {
public:
    Utf8Scope();
    Utf8Scope(const Utf8Scope&) = delete;
    Utf8Scope& operator=(const Utf8Scope&) = delete;
    ~Utf8Scope();
};

// A phone's connection, as the component gets it.
struct Intake {
    SessionKind kind = SessionKind::Upload;
    std::u16string path; // without a leading "/"
    std::string head;
    Descriptor socket;
    std::string subject;                         // of the lines of the log that are about it
    std::shared_ptr<const void> place = nullptr; // what it takes up, until the component has done with it
};
// The status is the handler's. The socket is the component's from then on, or closed. `session`, where it is
// asked for, lives longer than the connection.
HRESULT HandToComponent(Intake intake, IWebHandler& handler, Counters& counters,
                        std::shared_ptr<PhoneSession>* session = nullptr);

// Notes the phone that has been let in at its camera's feed, and writes to the log whom it `replaces`.
CameraFeed::Session WelcomePhone(const FeedTable& feeds, const std::string& camera, Clock::time_point asked,
                                 const std::string& address, const std::string& subject, bool replaces,
                                 const std::shared_ptr<PhoneSession>& upload);

} // namespace host
