// The cameras of the settings, as far as the host itself needs them.
#pragma once

#include <map>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/users/rights.h"
#include "kit/settings/document.h"

namespace host {

using kit::CameraEntry;

inline constexpr std::string_view kCameraTypes[] = {"320x240", "160x120"}; // the usual one first

// The sign-ins of phones: a camera that stands in the settings is one, under its name and with its password,
// so that a phone needs no user of its own. Thread-safe.
class CameraLogins {
public:
    // Returns the names of those that are no more.
    CameraNames Set(const std::vector<CameraEntry>& cameras);

    // A camera without a password is nobody's sign-in: it would open the server to everybody who guesses its
    // name.
    [[nodiscard]] bool Accepts(std::string_view login, std::string_view password) const;
    [[nodiscard]] bool Contains(std::string_view login) const;
    // What the record of the camera's phone is compared with; nothing for a name that is no camera's.
    [[nodiscard]] std::optional<std::string> StoredPassword(std::string_view camera) const;
    // Nothing for a login that Accepts would never take.
    [[nodiscard]] std::optional<std::string> PasswordOf(std::string_view login) const;

private:
    mutable std::mutex m_mutex;
    std::map<std::string, std::string, std::less<>> m_passwords;
};

} // namespace host
