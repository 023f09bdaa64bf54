#include "host/users/sessions.h"

#include <algorithm>
#include <array>
#include <cstdlib>

#include <fcntl.h>
#include <sys/socket.h>

#include "host/base/text_table.h"
#include "host/log/console.h"
#include "host/tls/digest.h"
#include "host/users/password.h"
#include "platform/files.h"

namespace host {
namespace {

constexpr std::size_t kIdBytes = 32;
// A person has a few browsers. Who signs in again and again ends the oldest of them.
constexpr std::size_t kMostOfLogin = 64;

} // namespace

Sessions::Sessions(std::string path, DigestOf digestOf)
    : m_path(std::move(path)), m_digestOf(std::move(digestOf)) {
    Read();
}

void Sessions::Read() {
    const auto content = m_path.empty() ? std::nullopt : platform::ReadWholeFile(m_path);
    if (!content)
        return;
    for (const TextLine& line : ReadTextTable(*content)) {
        if (line.fields.size() != 7)
            continue;
        const auto made = SecondsIn(line.fields[4]);
        const auto used = SecondsIn(line.fields[5]);
        if (!made || !used)
            continue;
        Session session{.owner = {line.fields[1], line.fields[2] == "camera"},
                        .secure = line.fields[3] == "tls",
                        .made = *made,
                        .used = *used,
                        .digest = line.fields[6],
                        .held = {}};
        m_sessions->insert_or_assign(line.fields[0], std::move(session));
    }
}

bool Sessions::IsOver(const Session& session, Time now) const {
    // A clock that was put back does not make a session longer.
    return now - session.used >= kIdle || now - session.made >= kLongest || session.made > now + kIdle ||
           session.digest.empty() || session.digest != m_digestOf(session.owner);
}

Sessions::Map::iterator Sessions::Erase(Map::iterator session) {
    for (const Descriptor& connection : session->second.held)
        ::shutdown(connection.Get(), SHUT_RDWR);
    m_changed = true;
    return m_sessions->erase(session);
}

void Sessions::MakeRoomFor(std::string_view login) {
    std::size_t count = 0;
    auto oldest = m_sessions->end();
    for (auto at = m_sessions->begin(); at != m_sessions->end(); ++at) {
        if (at->second.owner.login != login)
            continue;
        ++count;
        if (oldest == m_sessions->end() || at->second.used < oldest->second.used)
            oldest = at;
    }
    if (count >= kMostOfLogin)
        Erase(oldest);
}

std::string Sessions::Begin(const Owner& owner, bool secure, Time now) {
    std::string id = RandomHex(kIdBytes);
    const std::lock_guard guard(*m_mutex);
    MakeRoomFor(owner.login);
    m_sessions->insert_or_assign(Sha256(id), Session{.owner = owner,
                                                     .secure = secure,
                                                     .made = now,
                                                     .used = now,
                                                     .digest = m_digestOf(owner),
                                                     .held = {}});
    (void)Write();
    return id;
}

std::optional<Sessions::Owner> Sessions::Find(std::string_view id, bool secure, Time now) {
    if (id.size() != 2 * kIdBytes)
        return std::nullopt;
    // The hash is looked up, so the time that this takes tells nothing of the number.
    const std::string hash = Sha256(id);
    const std::lock_guard guard(*m_mutex);
    const auto found = m_sessions->find(hash);
    if (found == m_sessions->end() || found->second.secure != secure)
        return std::nullopt;
    if (IsOver(found->second, now)) {
        Erase(found);
        (void)Write();
        return std::nullopt;
    }
    m_changed = m_changed || found->second.used != now;
    found->second.used = now;
    return found->second.owner;
}

void Sessions::End(std::string_view id) {
    const std::lock_guard guard(*m_mutex);
    if (const auto found = m_sessions->find(Sha256(id)); found != m_sessions->end()) {
        Erase(found);
        (void)Write();
    }
}

void Sessions::EndAllOf(std::string_view login) {
    const std::lock_guard guard(*m_mutex);
    for (auto at = m_sessions->begin(); at != m_sessions->end();)
        at = at->second.owner.login == login ? Erase(at) : std::next(at);
    (void)Write();
}

void Sessions::Sweep(Time now) {
    const std::lock_guard guard(*m_mutex);
    bool ended = false;
    for (auto at = m_sessions->begin(); at != m_sessions->end();) {
        if (!at->second.held.empty())
            at->second.used = std::max(at->second.used, now);
        if (IsOver(at->second, now)) {
            at = Erase(at);
            ended = true;
        } else {
            ++at;
        }
    }
    if (ended)
        (void)Write();
}

bool Sessions::Save() {
    const std::lock_guard guard(*m_mutex);
    return !m_changed || Write();
}

bool Sessions::Write() {
    m_changed = false;
    if (m_path.empty())
        return true;
    std::string content =
        "# Who has signed in with a browser: hash of the session's number, login, kind of login, way, "
        "made, last used, digest of what the password is stored as.\n";
    for (const auto& [hash, session] : *m_sessions) {
        content += hash + '\t' + session.owner.login + '\t' + (session.owner.camera ? "camera" : "user") +
                   '\t' + (session.secure ? "tls" : "clear") + '\t' + SecondsOf(session.made) + '\t' +
                   SecondsOf(session.used) + '\t' + session.digest + '\n';
    }
    m_changed = FAILED(platform::ReplaceFile(m_path, content, 0600));
    return !m_changed;
}

Sessions::Held Sessions::Hold(std::string_view id, int fd) {
    Descriptor own(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    std::string hash = Sha256(id);
    const std::lock_guard guard(*m_mutex);
    const auto found = m_sessions->find(hash);
    if (found == m_sessions->end() || !own)
        return nullptr;
    const int number = own.Get();
    found->second.held.push_back(std::move(own));
    return {static_cast<const void*>(this),
            [mutex = m_mutex, sessions = m_sessions, hash = std::move(hash), number](const void*) {
                const std::lock_guard ending(*mutex);
                if (const auto at = sessions->find(hash); at != sessions->end())
                    std::erase_if(at->second.held,
                                  [number](const Descriptor& held) { return held.Get() == number; });
            }};
}

} // namespace host
