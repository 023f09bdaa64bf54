// Finds out who sends a request.
#pragma once

#include <atomic>
#include <condition_variable>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <tuple>
#include <vector>

#include "host/base/wait.h"
#include "host/events/event_log.h"
#include "host/http/endpoint.h"
#include "host/http/request.h"
#include "host/users/cameras.h"
#include "host/users/check_queue.h"
#include "host/users/password.h"
#include "host/users/rights.h"
#include "host/users/sessions.h"
#include "host/users/sign_in_places.h"
#include "host/users/throttle.h"
#include "host/users/user_store.h"
#include "kit/component/web_handler_host.h"

namespace host {

struct SignIn {
    enum class Result {
        Known,
        Missing,   // no credentials, or none that can be understood
        Wrong,     // no such user, or not the password
        TurnedAway // too many wrong ones before, or too many at the same time; not looked at
    };
    Result result = Result::Missing;
    Credentials credentials;
    UserKind kind = UserKind::Viewer;
    bool camera = false;   // by the password of the camera of this name: a phone that is this one camera
    std::string session{}; // the number of the browser's session; empty for a sign-in of its own
    std::string token{};   // the id of a program's token; empty for other sign-ins
    bool owner = false;    // of the data folder, by the control socket: nobody's login
    std::chrono::seconds retryAfter{0};
};

// Writes a line to the log for somebody who is turned away; login and camera may be empty.
void LogRefusal(const Request& request, std::string_view login, std::string_view camera,
                std::string_view reason);

// For who has changed something: writes a line to the log and an event: `what` of them, as "camera \"yard\"
// removed". With a camera the event is one of that camera.
void TellChange(EventLog& events, EventKind kind, const Request& request, const SignIn& by,
                const std::string& what, const std::string& camera = {});

// Users of the file, and the cameras of the settings, which sign in as phones. A login has one kind: a camera
// with the name of a user who is no phone is no sign-in. Where a phone of the file and a camera have one
// name, the password of either is right.
//
// Thread-safe. A password that was verified is remembered for some minutes, so that a page with its many
// requests, or a phone that comes back, does not pay for the hash each time; those who come with the same
// credentials from the same address at the same time wait for one check. Nothing is looked at, not even what
// is remembered, before the throttle has given it a turn: every answer tells a guesser something.
class Authenticator {
public:
    // `placesFile` keeps from where people have signed in; empty: nothing does.
    Authenticator(UserStore store, std::chrono::milliseconds maxThrottleWait, const Wakeup& stop,
                  std::string placesFile = {});

    // May wait for the sender's turn, and for the check; the stop signal ends that.
    SignIn Check(std::string_view authorization, const PeerAddress& peer);
    // The user of a session, whose password was right before; nothing where there is no such user any more.
    std::optional<SignIn> Enter(const Sessions::Owner& owner) const;
    // Which cameras somebody sees now, that is, one who has signed in so.
    Rights RightsOf(const Sessions::Owner& visitor) const;
    // Nobody who has not signed in sees any.
    Rights RightsOf(const SignIn& signIn) const;
    // Whether phones see every camera, or each its own alone; a list of a phone's own counts in any case.
    void SetPhonesWatchAll(bool all) noexcept { m_phonesWatchAll = all; }
    // What the password of a session's owner is stored as, and its kind, in a digest; empty where there is no
    // such user.
    std::string DigestOf(const Sessions::Owner& owner) const;
    // Looks now whether the file has changed: to be called twice a second.
    void Refresh();
    // Users of the file may; the password of a camera is one of the settings, and everybody knows the demo's.
    [[nodiscard]] bool MayChangePassword(const SignIn& visitor) const;
    enum class PasswordChange {
        Changed,
        NotYours,   // it is a camera's, or the demo's
        Unsound,    // see CheckPassword
        Wrong,      // the present one
        TurnedAway, // too many wrong ones before; not looked at
        NotWritten  // and so it stays what it was
    };
    // One's own, by whoever knows the present one; from `peer`, who waits for a turn as at a sign-in. Ends
    // the sessions of the user.
    PasswordChange ChangePassword(const SignIn& visitor, const std::string& present,
                                  const std::string& password, const PeerAddress& peer,
                                  std::chrono::seconds* retryAfter);
    // --- Users, for who administers them ---
    [[nodiscard]] UserMap Users() const;
    // Changes with the users; of this run of the host.
    [[nodiscard]] std::string UsersVersion() const;
    [[nodiscard]] std::optional<User> Find(std::string_view login) const;
    [[nodiscard]] std::optional<UserKind> KindOf(std::string_view login) const;
    enum class UserChange {
        Made,
        Changed,
        Same,       // it was so already
        Missing,    // there is no such user, or a new one has no kind or no password
        LastAdmin,  // nobody could administer the server any more
        NotWritten, // and so it stays what it was
        Outdated    // or somebody else has changed it at the same time
    };
    struct UserWish {
        std::optional<UserKind> kind{};
        std::optional<std::string> password{};
        std::optional<std::optional<CameraNames>> cameras{}; // a list, or none
    };
    // What is not given stays as it is. With a version, only while that is the present one. The texts have
    // been checked. Slow with a password.
    UserChange PutUser(const std::string& login, const UserWish& wish, std::string_view version = {});
    UserChange RemoveUser(const std::string& login, std::string_view version = {});

    // Who sent the request of that head, when the credentials in it are in order already or turn out to be;
    // without waiting for a turn and without counting a wrong one. For GetRequestAuth, which the component
    // calls for a request that was let in before.
    std::optional<kit::RequestIdentity> Identify(std::string_view head);
    // Waits for the turn of a password that somebody else compares: a camera's, in a phone's record. Nothing
    // when the sender is turned away, or the stop signal is raised.
    std::optional<Throttle::Attempt> AwaitRecordTurn(std::string_view camera, const PeerAddress& peer);

    // Writes what has to be known after a start; false when that was not possible, and is to be tried again.
    bool Save() { return m_places.Save(); }

    // The opaque block that stands for a sign-in in the component's hands: 16 random bytes, the same for
    // every request with it as long as the host runs.
    std::string TokenOf(const Sessions::Owner& visitor);
    // Who is behind a block; nothing for one that this host did not make or whose user or camera is gone.
    std::optional<Sessions::Owner> OwnerOf(std::string_view token) const;

    // All that there are. One that was there the last time, and is no more, leaves the lists of users:
    // another one that gets its name is a new camera, and in nobody's list.
    void SetCameras(const std::vector<CameraEntry>& cameras);
    // The password of a phone that is this camera; nothing where no phone can be.
    [[nodiscard]] std::optional<std::string> CameraPassword(std::string_view camera) const;
    // What the record of the camera's phone is compared with, whoever signs in.
    [[nodiscard]] std::optional<std::string> StoredCameraPassword(std::string_view camera) const {
        return m_cameras.StoredPassword(camera);
    }
    // Whether a camera of this name could not be signed in to.
    [[nodiscard]] bool IsTaken(std::string_view login) const;

private:
    struct Verified {
        std::string password;
        std::string hash; // of the user at that time: a changed password ends the memory; empty for a camera
        Clock::time_point until;
    };
    // A sign-in that is being checked; others with the same credentials from the same address wait for it.
    struct Flight {
        bool landed = false; // under m_mutex
        SignIn result;
    };
    using FlightKey = std::tuple<std::string, std::string, std::string>; // address, login, password

    // Puts into the store what is in force and not there. False when that was not possible.
    bool WriteUsers(std::unique_lock<std::mutex>& lock); // as Keep
    void RefreshUsers();                                 // with m_mutex held
    void ForgetTokens();                                 // of who is gone; with m_mutex held
    [[nodiscard]] std::string VersionOfUsers() const;    // with m_mutex held
    // Nothing: the user goes. With m_changing and m_mutex held, the latter not while the store is written.
    UserChange Keep(std::unique_lock<std::mutex>& lock, const std::string& login, std::optional<User> user);
    bool PutBackIfLastAdmin(std::unique_lock<std::mutex>& lock, const std::string& login, const User& former);
    std::optional<SignIn> Remembered(const Credentials& credentials) const; // with m_mutex held
    bool IsLogin(std::string_view login) const;                             // with m_mutex held
    bool IsThere(const Sessions::Owner& visitor) const;                     // with m_mutex held
    bool IsCamera(const Credentials& credentials) const;                    // with m_mutex held
    SignIn Fly(Credentials credentials, const std::string& address, Throttle::Attempt attempt);
    SignIn Verify(Credentials credentials, const std::string& address);
    void Remember(const Credentials& credentials, const std::string& hash);
    bool AwaitTurn(Throttle::Attempt& attempt) const;

    static constexpr std::chrono::minutes kRemember{5};
    static constexpr std::chrono::seconds kSweepInterval{10};

    const std::string m_run = RandomHex(16); // of versions: no other run of the host has the same
    const Wakeup& m_stop;
    CameraLogins m_cameras;
    std::atomic<bool> m_phonesWatchAll{true};
    SignInPlaces m_places;
    Throttle m_throttle;
    CheckQueue m_checks;
    const bool m_shared;        // the users are those of several hosts
    std::mutex m_changing;      // held by who changes users, also while they are written; before m_mutex
    mutable std::mutex m_mutex; // everything below
    UserStore m_store;
    bool m_unwritten = false;                   // what leaves the lists of users with its camera
    std::map<std::string, Verified> m_verified; // by login: never more than there are users and cameras
    Clock::time_point m_sweep;                  // when those of them that are over go next
    std::map<std::pair<std::string, bool>, std::string> m_tokens; // by login, and whether it is a camera's
    std::map<FlightKey, std::shared_ptr<Flight>> m_flights;
    std::condition_variable m_landed; // a flight has
};

} // namespace host
