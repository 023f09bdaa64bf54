// A phone of today: its browser is a camera.
//
//   GET /phone                      the page; "#TOKEN" behind it is a code, which no request carries
//   GET /phone/manifest.webmanifest for who installs it, with the name of the phone's camera
//   GET /phone/state                JSON {"camera":...,"secure":...}; 401 for a browser that is no phone
//   POST /phone/pair                a form with `token`: this browser is the code's camera from now on
//   POST /phone/sign-in             a form with a camera's `name` and `password`: the same
//   POST /phone/leave               it is no camera any more
//   WebSocket /phone/socket         pictures; host/bridge/page_message.h tells what is said
//   POST /phone/picture?number=N&state=JSON
//                                   the same where no WebSocket opens: one picture as the body, or none, and
//                                   what has changed; answers the messages that are due, as a JSON array.
//                                   {"type":"closed","code":N} among them stands for the end of a WebSocket
//   POST /cameras/NAME/control      JSON for the page of the phone that sends for the camera
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string>
#include <string_view>

#include "host/bridge/browser_phones.h"
#include "host/bridge/upload_link.h"
#include "host/http/answer.h"
#include "host/http/event_loop.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/http/stream.h"
#include "host/users/session_cookie.h"

namespace host {

class PostTalks;

class PhonePages {
public:
    // The camera of a code that is good, which it is no more then.
    using Spend = std::function<std::optional<std::string>(std::string_view token)>;

    // `language` is the server's. All that is referred to outlives the object.
    PhonePages(const BridgeParts& parts, const SessionCookie& cookie, const Limits& limits,
               const Wakeup& stop, EventLoops& loops, const std::string& language, Spend spend);
    ~PhonePages();

    [[nodiscard]] Answer Page(const Request& request) const;
    [[nodiscard]] Answer Manifest(const Request& request) const;
    [[nodiscard]] Answer State(const Request& request) const;
    [[nodiscard]] Answer Pair(const Request& request, std::string_view form) const;
    [[nodiscard]] Answer SignIn(const Request& request, std::string_view form) const;
    [[nodiscard]] Answer Leave(const Request& request) const;

    // The phone that a browser is; nothing for one that is none.
    [[nodiscard]] std::optional<Phones::Known> PhoneOf(const Request& request) const;
    [[nodiscard]] static Answer NoPhone();
    // Takes the connection, whose request asks for a WebSocket, and lets go of `held` when it has ended.
    // `begun` is called once the component has asked for pictures, on a thread that does not wait.
    void StartSocket(Stream stream, const Request& request, const Phones::Known& phone,
                     std::function<void()> begun, std::shared_ptr<const void> held) const;
    // Answers once the component has the picture.
    [[nodiscard]] Answer TakePicture(const Request& request, std::string_view body) const;
    // Ends phones that send by requests and have stopped to, and the pauses of those that are no longer good:
    // to be called twice a second.
    void Sweep() const;

    // `rest` is what stands behind "/cameras/".
    [[nodiscard]] Answer Control(std::string_view rest, std::string_view body) const;

private:
    [[nodiscard]] Answer Begin(const Request& request, const std::string& camera) const;

    const BridgeParts m_parts;
    const SessionCookie& m_cookie;
    const Limits& m_limits;
    const Wakeup& m_stop;
    EventLoops& m_loops;
    const std::string& m_language;
    const Spend m_spend;
    const std::unique_ptr<BrowserPhones> m_phones;
    const std::unique_ptr<PostTalks> m_posts;
};

} // namespace host
