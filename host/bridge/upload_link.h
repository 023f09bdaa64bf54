// The phone's side of an upload, played towards the component.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>

#include "host/bridge/intake.h"
#include "host/http/endpoint.h"
#include "host/users/authenticator.h"
#include "host/users/phones.h"
#include "kit/component/web_handler_host.h"

namespace host {

// What phones that are browsers need of the host. All of it outlives them.
struct BridgeParts {
    kit::WebHandlerHost& handlers;
    FeedTable& feeds;
    Authenticator& authenticator;
    Phones& phones;
    Counters& counters;
};

// A connection within this process that speaks the phones' protocol: the record with the camera's password, a
// stream header without bytes, and then whole pictures, no more of them than the component has granted. It
// ends with the object. Belongs to one thread, which never waits for the component's pictures.
class UploadLink {
public:
    enum class Outcome {
        Begun,
        Denied, // the camera is gone, or is no phone's
        Failed,
    };
    // Begins the upload of a camera for the phone of that address, which asked for it then. Whoever has been
    // sending for the camera is replaced. Null unless it has begun. Throws std::system_error.
    static std::unique_ptr<UploadLink> Begin(const BridgeParts& parts, const std::string& camera,
                                             const std::string& address, Clock::time_point asked,
                                             Outcome* outcome);

    // Reads what the component has sent and writes what waits for it, as far as that goes at once.
    void Step();
    [[nodiscard]] bool HasEnded() const noexcept { return m_ended; }
    // Whether the component has asked for pictures.
    [[nodiscard]] bool IsReady() const noexcept { return m_ready; }
    // Whether it has asked for one more, and has all those before.
    [[nodiscard]] bool TakesPicture() const noexcept { return m_granted > 0 && IsSent() && !m_ended; }
    // Only while it takes one. At most kMaxPhonePictureBytes.
    void Send(std::string_view jpeg);
    [[nodiscard]] bool IsSent() const noexcept { return m_waiting.empty(); }

    [[nodiscard]] int Fd() const noexcept { return m_socket.Get(); }
    // Of the camera's feed.
    [[nodiscard]] std::uint64_t Session() const noexcept { return m_session; }
    // Whether the host has ended it for pictures that cannot be decoded.
    [[nodiscard]] bool SentRubbish() const noexcept { return m_activity->SendsRubbish(); }

private:
    explicit UploadLink(Descriptor socket) : m_socket(std::move(socket)) {}
    void ReadGrants();
    void Write();

    Descriptor m_socket;
    std::shared_ptr<PhoneSession> m_activity;
    std::uint64_t m_session = 0;
    bool m_answered = false; // the record is accepted
    bool m_ready = false;
    bool m_ended = false;
    std::size_t m_granted = 0; // pictures that may be sent
    std::string m_waiting;     // to be written, from m_written on
    std::size_t m_written = 0;
};

} // namespace host
