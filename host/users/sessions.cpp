#include "host/users/sessions.h"

#include <memory>

#include <fcntl.h>
#include <sys/socket.h>

#include "host/base/wait.h"

namespace host {

std::optional<Sessions::Session> Sessions::Session::Read(std::span<const std::string> fields) {
    if (fields.size() != 6)
        return std::nullopt;
    Session session;
    if (!session.Take(fields[5], fields[3], fields[4]))
        return std::nullopt;
    session.owner = {fields[0], fields[1] == "camera"};
    session.secure = fields[2] == "tls";
    return session;
}

std::string Sessions::Session::Line() const {
    return owner.login + '\t' + (owner.camera ? "camera" : "user") + '\t' + (secure ? "tls" : "clear") +
           '\t' + SecondsOf(made) + '\t' + SecondsOf(used) + '\t' + digest;
}

Sessions::Sessions(std::shared_ptr<Store> store, DigestOf digestOf)
    : m_digestOf(std::move(digestOf)), m_table(std::move(store), [this](const Session& session, Time now) {
          // A clock that was put back does not make a session longer.
          return now - session.used >= kIdle || now - session.made >= kLongest ||
                 session.made > now + kIdle || session.digest.empty() ||
                 session.digest != m_digestOf(session.owner);
      }) {}

std::string Sessions::Begin(const Owner& owner, bool secure, Time now) {
    Session session;
    session.owner = owner;
    session.secure = secure;
    session.digest = m_digestOf(owner);
    return m_table.Add(std::move(session), now);
}

std::optional<Sessions::Owner> Sessions::Find(std::string_view id, bool secure, Time now) {
    const auto found =
        m_table.Find(id, now, [secure](const Session& session) { return session.secure == secure; });
    return found ? std::optional(found->record.owner) : std::nullopt;
}

void Sessions::End(std::string_view id) {
    (void)m_table.End(Sha256(id));
}

void Sessions::EndAllOf(std::string_view login) {
    (void)m_table.EndIf(
        [login](const std::string&, const Session& session) { return session.owner.login == login; });
}

std::function<void()> EndOfConnection(int fd) {
    const auto own = std::make_shared<const Descriptor>(::fcntl(fd, F_DUPFD_CLOEXEC, 0));
    return *own ? [own] { (void)::shutdown(own->Get(), SHUT_RDWR); } : std::function<void()>();
}

} // namespace host
