// Finds out who sends a request.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/wait.h"
#include "host/component/web_handler_host.h"
#include "host/http/endpoint.h"
#include "host/http/request.h"
#include "host/users/cameras.h"
#include "host/users/throttle.h"
#include "host/users/user_store.h"

namespace host {

struct SignIn {
    enum class Result {
        Known,
        Missing,   // no credentials, or none that can be understood
        Wrong,     // no such user, or not the password
        TurnedAway // too many wrong ones before; not looked at
    };
    Result result = Result::Missing;
    Credentials credentials;
    UserKind kind = UserKind::Viewer;
    std::chrono::seconds retryAfter{0};
};

// Users of the file, and the cameras of the settings, which sign in as phones. A login has one kind: a camera
// with the name of a user who is no phone is no sign-in. Where a phone of the file and a camera have one
// name, the password of either is right.
//
// Thread-safe. A password that was verified is remembered for some minutes, so that a page with its many
// requests, or a phone that comes back, does not pay for the hash each time.
class Authenticator {
public:
    Authenticator(UserStore store, std::chrono::milliseconds maxThrottleWait, const Wakeup& stop);

    // May wait for the address's turn; the stop signal ends that.
    SignIn Check(std::string_view authorization, const PeerAddress& peer);
    // Tells who sent the request of that head, when the credentials in it are right; does not wait for a turn
    // and does not count a wrong one. For GetRequestAuth, which the component calls for a request that was
    // let in before.
    std::optional<RequestIdentity> Identify(std::string_view head);
    // Counts a wrong password that was noticed elsewhere: in a phone's authentication record.
    void ReportWrong(const PeerAddress& peer);

    // The opaque block that stands for a user in the component's hands: 16 random bytes, the same for every
    // request of that user as long as the host runs.
    std::string TokenOf(const std::string& login);
    // The user behind a block; nothing for one that this host did not make or whose user is gone.
    std::optional<std::string> LoginOf(std::string_view token) const;

    [[nodiscard]] bool HasDemoUsers() const;
    void SetCameras(const std::vector<CameraEntry>& cameras) { m_cameras.Set(cameras); }
    // The password of a phone that is this camera; nothing where no phone can be.
    [[nodiscard]] std::optional<std::string> CameraPassword(std::string_view camera) const;
    // Whether a camera of this name could not be signed in to.
    [[nodiscard]] bool IsTaken(std::string_view login) const;

private:
    struct Verified {
        std::string password;
        std::string hash; // of the user at that time: a changed password ends the memory; empty for a camera
        Clock::time_point until;
    };
    void RefreshUsers(Clock::time_point now);                                 // with m_mutex held
    std::optional<UserKind> Remembered(const Credentials& credentials) const; // with m_mutex held
    bool IsLogin(std::string_view login) const;                               // with m_mutex held
    bool IsCamera(const Credentials& credentials) const;                      // with m_mutex held
    std::optional<UserKind> Verify(const Credentials& credentials);
    void Remember(const Credentials& credentials, const std::string& hash);

    static constexpr std::chrono::minutes kRemember{5};
    static constexpr std::chrono::seconds kRefreshEvery{1};

    const Wakeup& m_stop;
    CameraLogins m_cameras;
    Throttle m_throttle;
    mutable std::mutex m_mutex; // everything below
    UserStore m_store;
    Clock::time_point m_refreshed = Clock::now();
    std::map<std::string, Verified> m_verified; // by login: never more than there are users and cameras
    std::map<std::string, std::string> m_tokens;
};

} // namespace host
