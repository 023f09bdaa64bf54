#include "host/users/authenticator.h"

#include <algorithm>

#include "host/http/request.h"
#include "host/users/password.h"

namespace host {

Authenticator::Authenticator(UserStore store, std::chrono::milliseconds maxThrottleWait, const Wakeup& stop)
    : m_stop(stop), m_throttle(maxThrottleWait), m_store(std::move(store)) {}

SignIn Authenticator::Check(std::string_view authorization, const PeerAddress& peer) {
    auto credentials = ParseBasic(authorization);
    if (!credentials)
        return {};
    SignIn signIn{SignIn::Result::Known, std::move(*credentials), UserKind::Viewer, {}};
    {
        const std::lock_guard guard(m_mutex);
        RefreshUsers(Clock::now());
        if (const auto kind = Remembered(signIn.credentials)) {
            signIn.kind = *kind;
            return signIn;
        }
    }
    const auto turn = m_throttle.Reserve(peer.key, Clock::now());
    if (!turn || WaitFor({.stop = &m_stop}, *turn) == Waited::Stopped) {
        signIn.result = SignIn::Result::TurnedAway;
        signIn.retryAfter = m_throttle.RetryAfter(peer.key, Clock::now());
        return signIn;
    }
    if (const auto kind = Verify(signIn.credentials)) {
        signIn.kind = *kind;
    } else {
        signIn.result = SignIn::Result::Wrong;
        m_throttle.ReportWrong(peer.key, Clock::now());
    }
    return signIn;
}

std::optional<RequestIdentity> Authenticator::Identify(std::string_view head) {
    const auto request = ParseRequest(std::string(head)).request;
    const auto credentials = request ? ParseBasic(request->Field("Authorization")) : std::nullopt;
    if (!credentials)
        return std::nullopt;
    bool known = false;
    {
        const std::lock_guard guard(m_mutex);
        known = Remembered(*credentials).has_value();
    }
    if (!known && !Verify(*credentials))
        return std::nullopt;
    return RequestIdentity{credentials->login, credentials->password, TokenOf(credentials->login)};
}

void Authenticator::ReportWrong(const PeerAddress& peer) {
    m_throttle.ReportWrong(peer.key, Clock::now());
}

std::optional<UserKind> Authenticator::Verify(const Credentials& credentials) {
    User user;
    bool camera = false;
    {
        const std::lock_guard guard(m_mutex);
        camera = IsCamera(credentials);
        const auto found = m_store.Users().find(credentials.login);
        if (found != m_store.Users().end())
            user = found->second;
    }
    // The hash is what takes time. Only who has a camera's password is spared it, so that the time of an
    // answer tells nobody which logins there are.
    const bool hashed = !camera || !user.hash.empty();
    if (hashed && VerifyPassword(credentials.password, user.hash)) {
        Remember(credentials, user.hash);
        return user.kind;
    }
    if (!camera)
        return std::nullopt;
    Remember(credentials, {});
    return UserKind::Phone;
}

void Authenticator::Remember(const Credentials& credentials, const std::string& hash) {
    const auto now = Clock::now();
    const std::lock_guard guard(m_mutex);
    // Logins come and go with the cameras.
    std::erase_if(m_verified, [now](const auto& item) { return item.second.until < now; });
    m_verified[credentials.login] = {credentials.password, hash, now + kRemember};
}

std::optional<UserKind> Authenticator::Remembered(const Credentials& credentials) const {
    const auto memory = m_verified.find(credentials.login);
    if (memory == m_verified.end() || memory->second.until < Clock::now() ||
        !EqualInConstantTime(memory->second.password, credentials.password))
        return std::nullopt;
    if (memory->second.hash.empty())
        return IsCamera(credentials) ? std::optional(UserKind::Phone) : std::nullopt;
    const auto user = m_store.Users().find(credentials.login);
    return user != m_store.Users().end() && memory->second.hash == user->second.hash
               ? std::optional(user->second.kind)
               : std::nullopt;
}

void Authenticator::RefreshUsers(Clock::time_point now) {
    if (now - m_refreshed < kRefreshEvery)
        return;
    m_refreshed = now;
    if (!m_store.Refresh())
        return;
    const auto gone = [this](const auto& item) { return !IsLogin(item.first); };
    std::erase_if(m_verified, gone);
    std::erase_if(m_tokens, gone);
}

std::string Authenticator::TokenOf(const std::string& login) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_tokens.find(login);
    if (found != m_tokens.end())
        return found->second;
    std::erase_if(m_tokens, [this](const auto& item) { return !IsLogin(item.first); });
    return m_tokens.emplace(login, RandomBytes(16)).first->second;
}

std::optional<std::string> Authenticator::LoginOf(std::string_view token) const {
    const std::lock_guard guard(m_mutex);
    for (const auto& [login, known] : m_tokens) {
        if (EqualInConstantTime(known, token) && IsLogin(login))
            return login;
    }
    return std::nullopt;
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

bool Authenticator::IsLogin(std::string_view login) const {
    return m_store.Users().contains(login) || m_cameras.Contains(login);
}

bool Authenticator::HasDemoUsers() const {
    const std::lock_guard guard(m_mutex);
    return std::ranges::any_of(m_store.Users(), [](const auto& item) { return item.second.demo; });
}

} // namespace host
