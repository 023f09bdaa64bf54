// The control socket: how programs of the host's own user, or of root, talk to a running host without a
// password.
//
// DATA/control.sock (0600) speaks HTTP, for the interface at /api/v1 alone:
//
//   curl --unix-socket DATA/control.sock http://localhost/api/v1/cameras
//
// Who has the right to open it may read the users' file as well, so it opens nothing that was closed.
#pragma once

#include <functional>
#include <optional>
#include <string>
#include <string_view>
#include <thread>

#include "host/base/wait.h"

namespace host {

inline constexpr std::string_view kControlSocket = "control.sock";

// Connections are served one behind the other.
class ControlSocket {
public:
    using Serve = std::function<void(Descriptor connection)>;

    // Takes the place of a socket that an earlier host has left: the caller has the folder's lock. `serve` is
    // called on a thread of this object. Throws StartError. All that is referred to outlives the object.
    ControlSocket(const std::string& folder, Serve serve, const Wakeup& stop);
    ControlSocket(const ControlSocket&) = delete;
    ControlSocket& operator=(const ControlSocket&) = delete;
    // The stop signal must be raised before.
    ~ControlSocket();

private:
    void Accept();

    const Serve m_serve;
    const Wakeup& m_stop;
    const Descriptor m_folder;
    Descriptor m_socket;
    std::thread m_acceptor; // last: it uses all of the above
};

struct ControlReply {
    unsigned status = 0;
    std::string body;
};
// Asks the host that runs on a data folder; a body is JSON. Nothing where no host runs there. Throws
// StartError where one does, but does not let this user in or gives no answer.
std::optional<ControlReply> AskHost(const std::string& folder, std::string_view method,
                                    std::string_view target, std::string_view body = {});

} // namespace host
