// How a phone's connection goes to the component.
#pragma once

#include <memory>
#include <string>

#include "host/base/counters.h"
#include "host/base/wait.h"
#include "host/feed/feed_table.h"
#include "host/feed/phone_session.h"
#include "interfaces/IWebHandler.h"
#include "platform/com.h"
#include "platform/scope.h"

namespace host {

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
                                 const std::string& address, const std::string& subject, bool replaces);

} // namespace host
