// The users of the host: an entry each, by the login.
//
// In a file of the data folder one user is a line: login, kind, mark, password hash, separated by tabs; "#"
// begins a comment. The mark is "demo" for the users that the demo made and "-" for others. Where a user has
// a list of cameras, a fifth field has it.
#pragma once

#include <map>
#include <memory>
#include <optional>
#include <span>
#include <string>
#include <string_view>
#include <vector>

#include "host/base/store_mirror.h"
#include "host/users/rights.h"

namespace host {

enum class UserKind {
    Admin,  // everything
    Viewer, // looks at the pages
    Phone,  // sends and receives pictures through the component
};
std::string_view KindName(UserKind kind) noexcept;
std::optional<UserKind> KindFromName(std::string_view name) noexcept;

// The rights that addresses of the server ask for.
enum class Right {
    Watch,     // in a browser
    View,      // on a phone
    Upload,    // be a camera
    Administer // see and change the settings
};
bool Allows(UserKind kind, Right right) noexcept;

struct User {
    UserKind kind = UserKind::Viewer;
    bool demo = false;
    std::string hash;
    // The cameras that a viewer sees, or a phone besides its own; administrators see all. Nothing: a viewer
    // sees all, and a phone what phones see.
    std::optional<CameraNames> cameras{};
};
using UserMap = std::map<std::string, User, std::less<>>;

inline constexpr std::size_t kMaxLoginBytes = 64;
// A phone's record has 64 bytes for the password and its end.
inline constexpr std::size_t kMaxPhonePasswordBytes = 63;

// Check a login and a password where they are set: they travel in HTTP Basic, in paths, and in the
// query that the component is asked for a midlet with, where nothing escapes them. The result says what is
// wrong; empty when nothing is.
std::string CheckLogin(std::string_view login);
std::string CheckPassword(std::string_view password, UserKind kind);
// A list of cameras as a text, and back: names with commas between them, each percent-encoded; "all" where
// there is no list. Nothing for a text that is neither.
std::string CameraListText(const std::optional<CameraNames>& cameras);
std::optional<std::optional<CameraNames>> ReadCameraList(std::string_view text);
// A password of fewer characters is taken, and said to be weak.
inline constexpr std::size_t kGoodPasswordCharacters = 8;
bool IsWeakPassword(std::string_view password) noexcept;

// Not thread-safe; the authenticator guards it.
class UserStore {
public:
    // In a file. Throws StartError for one that cannot be read or holds a line that is no user: going on
    // without it would lock people out, or lose them at the next write. A login that CheckLogin refuses only
    // for a sign that phones cannot send is somebody's already, and stays.
    explicit UserStore(std::string path) : UserStore(InFile(std::move(path))) {}
    static std::shared_ptr<Store> InFile(std::string path);
    explicit UserStore(std::shared_ptr<Store> entries);

    [[nodiscard]] const UserMap& Users() const noexcept { return m_users; }
    // Takes over what others have changed in the store (--add-user beside a running host). True when the
    // users may have changed. A file that cannot be read meanwhile leaves the users as they are.
    bool Refresh();
    void Set(const std::string& login, User user);
    void Remove(std::string_view login);
    // Puts all that Set and Remove have changed into the store, and may wait for it. Throws StartError when
    // that was not possible.
    void Save();

    // The same in the three steps of a mirror. A change that was carried out is in force with Settle.
    [[nodiscard]] std::vector<Store::Change> ChangesTo(const UserMap& wanted) const;
    [[nodiscard]] const std::shared_ptr<Store>& Source() const noexcept { return m_entries.Source(); }
    void Settle(std::span<const Store::Change> changes, std::span<const Store::Outcome> outcomes);
    // Whether the value of an entry is an administrator's.
    static bool IsAdmin(std::string_view value) noexcept;

private:
    bool Take(std::span<const Store::Update> updates);

    StoreMirror m_entries;
    UserMap m_users;
};

} // namespace host
