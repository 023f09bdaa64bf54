#include "host/users/cameras.h"

#include "host/users/password.h"

namespace host {

CameraNames CameraLogins::Set(const std::vector<CameraEntry>& cameras) {
    std::map<std::string, std::string, std::less<>> passwords;
    for (const CameraEntry& camera : cameras)
        passwords.emplace(camera.name, camera.password);
    const std::lock_guard guard(m_mutex);
    m_passwords.swap(passwords);
    CameraNames gone;
    for (const auto& [name, password] : passwords) {
        if (!m_passwords.contains(name))
            gone.insert(name);
    }
    return gone;
}

bool CameraLogins::Accepts(std::string_view login, std::string_view password) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_passwords.find(login);
    return found != m_passwords.end() && !found->second.empty() &&
           EqualInConstantTime(found->second, password);
}

bool CameraLogins::Contains(std::string_view login) const {
    const std::lock_guard guard(m_mutex);
    return m_passwords.contains(login);
}

std::optional<std::string> CameraLogins::StoredPassword(std::string_view camera) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_passwords.find(camera);
    return found == m_passwords.end() ? std::nullopt : std::optional(found->second);
}

std::optional<std::string> CameraLogins::PasswordOf(std::string_view login) const {
    const std::lock_guard guard(m_mutex);
    const auto found = m_passwords.find(login);
    return found == m_passwords.end() || found->second.empty() ? std::nullopt
                                                               : std::optional<std::string>(found->second);
}

} // namespace host
