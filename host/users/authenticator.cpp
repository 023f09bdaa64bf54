#include "host/users/authenticator.h"

#include <algorithm>

#include "host/http/request.h"
#include "host/log/console.h"
#include "host/tls/digest.h"
#include "host/users/password.h"
#include "platform/scope.h"

namespace host {

void LogRefusal(const Request& request, std::string_view login, std::string_view camera,
                std::string_view reason) {
    Console::Get().Refuse({.address = request.peer.text,
                           .whom = request.peer.key,
                           .login = login,
                           .camera = camera,
                           .reason = reason});
}

void TellChange(EventLog& events, EventKind kind, const Request& request, const SignIn& by,
                const std::string& what, const std::string& camera) {
    Console::Get().Log("message", what + (by.owner ? " on the command line"
                                                   : " by \"" + Printable(by.credentials.login) + "\"" +
                                                         (by.token.empty() ? "" : ", with a token,") +
                                                         " from " + request.peer.text));
    Event event{.kind = kind, .camera = camera, .who = by.credentials.login, .text = what};
    event.details["address"] = by.owner ? "control socket" : request.peer.text;
    if (!by.token.empty())
        event.details["token"] = by.token;
    events.Tell(std::move(event));
}

Authenticator::Authenticator(UserStore store, std::chrono::milliseconds maxThrottleWait, const Wakeup& stop,
                             std::string placesFile)
    : m_stop(stop), m_places(std::move(placesFile)), m_throttle(maxThrottleWait, m_places),
      m_shared(store.Source()->IsShared()), m_store(std::move(store)) {}

SignIn Authenticator::Check(std::string_view authorization, const PeerAddress& peer) {
    auto credentials = ParseBasic(authorization);
    if (!credentials)
        return {};
    const FlightKey key(peer.key, credentials->login, credentials->password);
    std::shared_ptr<Flight> flight;
    std::optional<Throttle::Attempt> attempt;
    {
        std::unique_lock lock(m_mutex);
        const auto now = Clock::now();
        // A user that was added just now signs in at once; a look at the file's stamp costs next to nothing.
        RefreshUsers();
        if (const auto found = m_flights.find(key); found != m_flights.end()) {
            flight = found->second;
            m_landed.wait(lock, [&] { return flight->landed; });
            return flight->result;
        }
        SignIn away{.result = SignIn::Result::TurnedAway, .credentials = *credentials};
        attempt =
            m_throttle.Reserve(Throttle::Kind::SignIn, credentials->login, peer.key, now, &away.retryAfter);
        if (!attempt)
            return away;
        if (attempt->Turn() <= now) {
            if (auto known = Remembered(*credentials)) {
                attempt->Right();
                return std::move(*known);
            }
        }
        flight = std::make_shared<Flight>();
        flight->result = std::move(away); // should the memory end on the way
        m_flights.emplace(key, flight);
    }
    const platform::AtScopeEnd land([&] {
        const std::lock_guard guard(m_mutex);
        flight->landed = true;
        m_flights.erase(key);
        m_landed.notify_all();
    });
    SignIn result = Fly(std::move(*credentials), peer.key, std::move(*attempt));
    flight->result = result; // nobody reads it before it has landed
    return result;
}

// What is checked by one for all with the same credentials.
SignIn Authenticator::Fly(Credentials credentials, const std::string& address, Throttle::Attempt attempt) {
    SignIn away{.result = SignIn::Result::TurnedAway,
                .credentials = credentials,
                .retryAfter = std::chrono::seconds(1)};
    if (!AwaitTurn(attempt))
        return away;
    {
        const std::lock_guard guard(m_mutex);
        if (auto known = Remembered(credentials)) {
            attempt.Right();
            return std::move(*known);
        }
    }
    SignIn result = Verify(std::move(credentials), address);
    if (result.result == SignIn::Result::Known)
        attempt.Right();
    else if (result.result == SignIn::Result::TurnedAway)
        attempt.Withdraw();
    return result;
}

bool Authenticator::AwaitTurn(Throttle::Attempt& attempt) const {
    const bool stopped = WaitFor({.stop = &m_stop}, attempt.Turn()) == Waited::Stopped;
    if (stopped)
        attempt.Withdraw();
    return !stopped;
}

std::optional<Throttle::Attempt> Authenticator::AwaitRecordTurn(std::string_view camera,
                                                                const PeerAddress& peer) {
    std::chrono::seconds retryAfter{0}; // a phone has no use for it
    auto attempt = m_throttle.Reserve(Throttle::Kind::Record, camera, peer.key, Clock::now(), &retryAfter);
    if (attempt && !AwaitTurn(*attempt))
        attempt.reset();
    return attempt;
}

std::optional<kit::RequestIdentity> Authenticator::Identify(std::string_view head) {
    const auto request = ParseRequest(std::string(head)).request;
    const auto credentials = request ? ParseBasic(request->Field("Authorization")) : std::nullopt;
    if (!credentials)
        return std::nullopt;
    std::optional<SignIn> signIn;
    {
        const std::lock_guard guard(m_mutex);
        signIn = Remembered(*credentials);
    }
    if (!signIn)
        signIn = Verify(*credentials, {});
    if (signIn->result != SignIn::Result::Known)
        return std::nullopt;
    return kit::RequestIdentity{credentials->login, credentials->password,
                                TokenOf({credentials->login, signIn->camera})};
}

SignIn Authenticator::Verify(Credentials credentials, const std::string& address) {
    User user;
    bool camera = false;
    {
        const std::lock_guard guard(m_mutex);
        camera = IsCamera(credentials);
        const auto found = m_store.Users().find(credentials.login);
        if (found != m_store.Users().end())
            user = found->second;
    }
    SignIn signIn{.result = SignIn::Result::Wrong, .credentials = std::move(credentials)};
    // The hash is what takes time. Only who has a camera's password is spared it, so that the time of an
    // answer tells nobody which logins there are.
    if (!camera || !user.hash.empty()) {
        const auto now = Clock::now();
        const bool last = m_throttle.IsLast(signIn.credentials.login, now);
        const auto place =
            m_checks.Enter(last ? CheckQueue::Rank::Last : CheckQueue::Rank::Usual, address, m_stop);
        // Who waited here may have been one of very many.
        if (!place || !m_throttle.IsHeard(signIn.credentials.login, address, Clock::now())) {
            signIn.result = SignIn::Result::TurnedAway;
            signIn.retryAfter = std::chrono::seconds(1);
            return signIn;
        }
        if (VerifyPassword(signIn.credentials.password, user.hash)) {
            Remember(signIn.credentials, user.hash);
            signIn.result = SignIn::Result::Known;
            signIn.kind = user.kind;
            return signIn;
        }
    }
    if (camera) {
        Remember(signIn.credentials, {});
        signIn.result = SignIn::Result::Known;
        signIn.kind = UserKind::Phone;
        signIn.camera = true;
    }
    return signIn;
}

void Authenticator::Remember(const Credentials& credentials, const std::string& hash) {
    const auto now = Clock::now();
    const std::lock_guard guard(m_mutex);
    // Logins come and go with the cameras. Not at each sign-in: a host that begins has thousands at once.
    if (now >= m_sweep) {
        std::erase_if(m_verified, [now](const auto& item) { return item.second.until < now; });
        m_sweep = now + kSweepInterval;
    }
    m_verified[credentials.login] = {credentials.password, hash, now + kRemember};
}

std::optional<SignIn> Authenticator::Remembered(const Credentials& credentials) const {
    const auto memory = m_verified.find(credentials.login);
    if (memory == m_verified.end() || memory->second.until < Clock::now() ||
        !EqualInConstantTime(memory->second.password, credentials.password))
        return std::nullopt;
    SignIn signIn{.result = SignIn::Result::Known, .credentials = credentials};
    if (memory->second.hash.empty()) {
        signIn.kind = UserKind::Phone;
        signIn.camera = true;
        return IsCamera(credentials) ? std::optional(signIn) : std::nullopt;
    }
    const auto user = m_store.Users().find(credentials.login);
    if (user == m_store.Users().end() || memory->second.hash != user->second.hash)
        return std::nullopt;
    signIn.kind = user->second.kind;
    return signIn;
}

std::optional<SignIn> Authenticator::Enter(const Sessions::Owner& owner) const {
    SignIn signIn{.result = SignIn::Result::Known, .credentials = {owner.login, {}}};
    signIn.camera = owner.camera;
    signIn.kind = UserKind::Phone;
    const std::lock_guard guard(m_mutex);
    const auto user = m_store.Users().find(owner.login);
    if (!owner.camera) {
        if (user == m_store.Users().end())
            return std::nullopt;
        signIn.kind = user->second.kind;
    }
    return signIn;
}

Rights Authenticator::RightsOf(const Sessions::Owner& visitor) const {
    const auto asPhone = [&](CameraNames list, bool listed) {
        list.insert(visitor.login);
        return m_phonesWatchAll && !listed ? Rights::OfAll() : Rights::Of(std::move(list));
    };
    const std::lock_guard guard(m_mutex);
    if (!IsThere(visitor))
        return {};
    if (visitor.camera)
        return asPhone({}, false);
    const User& user = m_store.Users().find(visitor.login)->second;
    if (user.kind == UserKind::Phone)
        return asPhone(user.cameras.value_or(CameraNames()), user.cameras.has_value());
    return user.kind == UserKind::Admin || !user.cameras ? Rights::OfAll() : Rights::Of(*user.cameras);
}

Rights Authenticator::RightsOf(const SignIn& signIn) const {
    if (signIn.result != SignIn::Result::Known)
        return {};
    return signIn.owner ? Rights::OfAll()
                        : RightsOf(Sessions::Owner{signIn.credentials.login, signIn.camera});
}

std::string Authenticator::DigestOf(const Sessions::Owner& owner) const {
    if (owner.camera) {
        const auto password = CameraPassword(owner.login);
        return password ? Sha256("camera\n" + *password) : std::string();
    }
    const std::lock_guard guard(m_mutex);
    const auto user = m_store.Users().find(owner.login);
    return user == m_store.Users().end()
               ? std::string()
               : Sha256(std::string(KindName(user->second.kind)) + "\n" + user->second.hash);
}

void Authenticator::Refresh() {
    const std::unique_lock changing(m_changing, std::try_to_lock);
    std::unique_lock lock(m_mutex);
    RefreshUsers();
    if (m_unwritten && changing) {
        m_unwritten = false;
        m_unwritten = !WriteUsers(lock);
    }
}

bool Authenticator::WriteUsers(std::unique_lock<std::mutex>& lock) {
    const auto changes = m_store.ChangesTo(m_store.Users());
    const auto store = m_store.Source();
    lock.unlock();
    const auto outcomes = store->Write(changes);
    lock.lock();
    m_store.Settle(changes, outcomes);
    for (const Store::Outcome& outcome : outcomes) {
        if (outcome.why.empty())
            continue;
        // That others cannot be reached is told once.
        if (!m_shared)
            Console::Get().Log("error", outcome.why);
        return false;
    }
    return true;
}

bool Authenticator::MayChangePassword(const SignIn& visitor) const {
    const std::lock_guard guard(m_mutex);
    const auto user = m_store.Users().find(visitor.credentials.login);
    return !visitor.camera && user != m_store.Users().end() && !user->second.demo;
}

Authenticator::PasswordChange Authenticator::ChangePassword(const SignIn& visitor, const std::string& present,
                                                            const std::string& password,
                                                            const PeerAddress& peer,
                                                            std::chrono::seconds* retryAfter) {
    using enum PasswordChange;
    const std::string& login = visitor.credentials.login;
    if (!MayChangePassword(visitor))
        return NotYours;
    if (!CheckPassword(password, visitor.kind).empty())
        return Unsound;
    const SignIn signIn = Check(BasicAuthorization({login, present}), peer);
    if (signIn.result == SignIn::Result::TurnedAway) {
        *retryAfter = signIn.retryAfter;
        return TurnedAway;
    }
    if (signIn.result != SignIn::Result::Known || signIn.camera)
        return Wrong;
    const std::string hash = HashPassword(password); // slow: outside the lock
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
    // What --add-user wrote meanwhile stays.
    (void)m_store.Refresh();
    const auto user = m_store.Users().find(login);
    if (user == m_store.Users().end())
        return NotYours;
    User changed = user->second;
    changed.hash = hash;
    return Keep(lock, login, std::move(changed)) == UserChange::Changed ? Changed : NotWritten;
}

Authenticator::UserChange Authenticator::Keep(std::unique_lock<std::mutex>& lock, const std::string& login,
                                              std::optional<User> user) {
    UserMap wanted = m_store.Users();
    const auto present = wanted.find(login);
    const bool there = present != wanted.end();
    const std::optional<User> former = there ? std::optional(present->second) : std::nullopt;
    if (user)
        wanted.insert_or_assign(login, *std::move(user));
    else
        wanted.erase(login);
    if (std::ranges::none_of(wanted, [](const auto& item) { return item.second.kind == UserKind::Admin; }))
        return UserChange::LastAdmin;
    const auto changes = m_store.ChangesTo(wanted);
    const auto store = m_store.Source();
    lock.unlock();
    const auto outcomes = store->Write(changes);
    lock.lock();
    m_store.Settle(changes, outcomes);
    m_verified.erase(login);
    if (!wanted.contains(login))
        ForgetTokens();
    const auto own = std::ranges::find(changes, login, &Store::Change::key);
    if (own != changes.end()) {
        const Store::Outcome& outcome = outcomes[static_cast<std::size_t>(own - changes.begin())];
        if (outcome.result == Store::Result::Conflict)
            return UserChange::Outdated;
        if (outcome.result != Store::Result::Done) {
            Console::Get().Log("error", outcome.why);
            return UserChange::NotWritten;
        }
    }
    if (former && former->kind == UserKind::Admin && store->IsShared() &&
        !PutBackIfLastAdmin(lock, login, *former))
        return UserChange::LastAdmin;
    return there ? UserChange::Changed : UserChange::Made;
}

// Of two administrators who are removed at two hosts at the same moment each host still saw the other one. So
// whoever has removed one looks once more, and at least the later of the two finds that nobody is left. It
// puts its own back: nobody is made an administrator who was none. Where both find it both stay, and somebody
// asks again. False when it was put back.
bool Authenticator::PutBackIfLastAdmin(std::unique_lock<std::mutex>& lock, const std::string& login,
                                       const User& former) {
    UserMap users = m_store.Users();
    if (const auto now = users.find(login); now != users.end() && now->second.kind == UserKind::Admin)
        return true;
    const auto store = m_store.Source();
    lock.unlock();
    const bool others = std::ranges::any_of(users, [&](const auto& item) {
        if (item.second.kind != UserKind::Admin || item.first == login)
            return false;
        const Store::Reading reading = store->Get(item.first);
        // What cannot be read is taken for what was known.
        return reading.result != Store::Result::Done ||
               (reading.entry && UserStore::IsAdmin(reading.entry->value));
    });
    lock.lock();
    if (others)
        return true;
    users = m_store.Users();
    users.insert_or_assign(login, former);
    const auto changes = m_store.ChangesTo(users);
    lock.unlock();
    const auto outcomes = store->Write(changes);
    lock.lock();
    m_store.Settle(changes, outcomes);
    return false;
}

UserMap Authenticator::Users() const {
    const std::lock_guard guard(m_mutex);
    return m_store.Users();
}

std::optional<User> Authenticator::Find(std::string_view login) const {
    const std::lock_guard guard(m_mutex);
    const auto user = m_store.Users().find(login);
    return user != m_store.Users().end() ? std::optional(user->second) : std::nullopt;
}

std::optional<UserKind> Authenticator::KindOf(std::string_view login) const {
    const auto user = Find(login);
    return user ? std::optional(user->kind) : std::nullopt;
}

std::string Authenticator::VersionOfUsers() const {
    std::string all = m_run;
    for (const auto& [login, user] : m_store.Users())
        all += '\n' + login + '\t' + std::string(KindName(user.kind)) + '\t' + user.hash + '\t' +
               CameraListText(user.cameras);
    return '"' + Sha256(all).substr(0, 32) + '"';
}

std::string Authenticator::UsersVersion() const {
    const std::lock_guard guard(m_mutex);
    return VersionOfUsers();
}

Authenticator::UserChange Authenticator::PutUser(const std::string& login, const UserWish& wish,
                                                 std::string_view version) {
    const auto& password = wish.password;
    const auto present = [&]() -> std::optional<User> {
        const auto user = m_store.Users().find(login);
        return user != m_store.Users().end() ? std::optional(user->second) : std::nullopt;
    };
    std::string before; // the hash that the password is compared with
    {
        const std::lock_guard guard(m_mutex);
        RefreshUsers();
        if (const auto user = present())
            before = user->hash;
    }
    // Slow, and so outside the lock. A request that comes again changes nothing.
    const bool same = password && !before.empty() && VerifyPassword(*password, before);
    const std::string hash = password && !same ? HashPassword(*password) : before;
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
    RefreshUsers();
    if (!version.empty() && version != VersionOfUsers())
        return UserChange::Outdated;
    const auto former = present();
    if (!former && (!wish.kind || !password))
        return UserChange::Missing;
    User user = former.value_or(User{});
    user.kind = wish.kind.value_or(user.kind);
    user.cameras = wish.cameras.value_or(user.cameras);
    if (password)
        user.hash = hash;
    if (former && former->kind == user.kind && former->hash == user.hash && former->cameras == user.cameras)
        return UserChange::Same;
    return Keep(lock, login, std::move(user));
}

Authenticator::UserChange Authenticator::RemoveUser(const std::string& login, std::string_view version) {
    const std::lock_guard changing(m_changing);
    std::unique_lock lock(m_mutex);
    RefreshUsers();
    if (!version.empty() && version != VersionOfUsers())
        return UserChange::Outdated;
    return m_store.Users().contains(login) ? Keep(lock, login, std::nullopt) : UserChange::Missing;
}

void Authenticator::RefreshUsers() {
    if (!m_store.Refresh())
        return;
    std::erase_if(m_verified, [this](const auto& item) { return !IsLogin(item.first); });
    ForgetTokens();
}

void Authenticator::ForgetTokens() {
    std::erase_if(m_tokens, [this](const auto& item) {
        return !IsThere({item.first.first, item.first.second});
    });
}

std::string Authenticator::TokenOf(const Sessions::Owner& visitor) {
    const std::pair key(visitor.login, visitor.camera);
    const std::lock_guard guard(m_mutex);
    const auto found = m_tokens.find(key);
    if (found != m_tokens.end())
        return found->second;
    return m_tokens.emplace(key, RandomBytes(16)).first->second;
}

std::optional<Sessions::Owner> Authenticator::OwnerOf(std::string_view token) const {
    const std::lock_guard guard(m_mutex);
    for (const auto& [key, known] : m_tokens) {
        const Sessions::Owner visitor{key.first, key.second};
        if (EqualInConstantTime(known, token) && IsThere(visitor))
            return visitor;
    }
    return std::nullopt;
}

void Authenticator::SetCameras(const std::vector<CameraEntry>& cameras) {
    const CameraNames gone = m_cameras.Set(cameras);
    if (gone.empty())
        return;
    // The settings' lock is held here, and hosts that share the users can be far away: see Refresh.
    std::unique_lock changing(m_changing, std::defer_lock);
    if (!m_shared)
        changing.lock();
    std::unique_lock lock(m_mutex);
    RefreshUsers(); // what --add-user wrote meanwhile stays
    ForgetTokens();
    bool changed = false;
    for (auto [login, user] : UserMap(m_store.Users())) {
        const auto leaves = [&](const std::string& name) { return gone.contains(name); };
        if (!user.cameras || std::erase_if(*user.cameras, leaves) == 0)
            continue;
        m_store.Set(login, std::move(user));
        changed = true;
    }
    // In force in any case, and written with the next change if not now.
    if (changed && m_shared)
        m_unwritten = true;
    else if (changed)
        (void)WriteUsers(lock);
}

bool Authenticator::IsTaken(std::string_view login) const {
    const std::lock_guard guard(m_mutex);
    const auto user = m_store.Users().find(login);
    return user != m_store.Users().end() && user->second.kind != UserKind::Phone;
}

std::optional<std::string> Authenticator::CameraPassword(std::string_view camera) const {
    return IsTaken(camera) ? std::nullopt : m_cameras.PasswordOf(camera);
}

bool Authenticator::IsCamera(const Credentials& credentials) const {
    const auto user = m_store.Users().find(credentials.login);
    return (user == m_store.Users().end() || user->second.kind == UserKind::Phone) &&
           m_cameras.Accepts(credentials.login, credentials.password);
}

bool Authenticator::IsThere(const Sessions::Owner& visitor) const {
    return visitor.camera ? m_cameras.Contains(visitor.login) : m_store.Users().contains(visitor.login);
}

bool Authenticator::IsLogin(std::string_view login) const {
    return m_store.Users().contains(login) || m_cameras.Contains(login);
}

} // namespace host
