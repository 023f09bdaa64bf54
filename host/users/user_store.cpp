#include "host/users/user_store.h"

#include <algorithm>
#include <array>
#include <utility>
#include <vector>

#include "host/base/start_error.h"
#include "host/base/text_store.h"
#include "host/http/request.h"
#include "platform/text.h"

namespace host {
namespace {

constexpr std::array<std::pair<UserKind, std::string_view>, 3> kKinds{{
    {UserKind::Admin, "admin"},
    {UserKind::Viewer, "viewer"},
    {UserKind::Phone, "phone"},
}};

constexpr std::string_view kAllCameras = "all";

// What a file of users cannot hold, for one that was written when other control characters were let in.
bool HasAsciiControl(std::string_view text) {
    return std::ranges::any_of(text, [](char c) { return static_cast<unsigned char>(c) < 32 || c == 127; });
}

std::string CheckLoginWithout(std::string_view login, std::string_view signs) {
    if (login.empty() || login.size() > kMaxLoginBytes)
        return "a login has 1 to 64 bytes";
    if (HasAsciiControl(login) || login.find_first_of(signs) != std::string_view::npos) {
        std::string line = "a login has no control characters and none of";
        for (const char sign : signs)
            line.append(1, ' ').append(1, sign);
        return line;
    }
    if (!platform::Utf8ToWideStrict(login))
        return "a login is UTF-8 text";
    return {};
}

struct ReadLine {
    std::string wrong; // with it; empty: nothing
    User user;
};
ReadLine ReadUser(const TextLine& line) {
    const auto bad = [](std::string_view what) { return ReadLine{std::string(what), {}}; };
    if (line.fields.size() != 4 && line.fields.size() != 5)
        return bad("a user has four fields: login, kind, mark, hash; and a fifth one for a list of cameras");
    const auto kind = KindFromName(line.fields[1]);
    if (!kind)
        return bad("the kind of a user is admin, viewer or phone");
    if (const std::string wrong = CheckLoginWithout(line.fields[0], "/?#:"); !wrong.empty())
        return bad(wrong);
    auto cameras = ReadCameraList(line.fields.size() == 5 ? line.fields[4] : std::string(kAllCameras));
    if (!cameras)
        return bad("a list of cameras is names with commas between them, percent-encoded");
    return {{}, {*kind, line.fields[2] == "demo", line.fields[3], *std::move(cameras)}};
}

std::string ValueOf(const User& user) {
    return std::string(KindName(user.kind)) + '\t' + (user.demo ? "demo" : "-") + '\t' + user.hash +
           (user.cameras ? '\t' + CameraListText(user.cameras) : "");
}

} // namespace

std::string_view KindName(UserKind kind) noexcept {
    return kKinds[static_cast<std::size_t>(kind)].second;
}

std::optional<UserKind> KindFromName(std::string_view name) noexcept {
    for (const auto& [kind, text] : kKinds) {
        if (text == name)
            return kind;
    }
    return std::nullopt;
}

bool Allows(UserKind kind, Right right) noexcept {
    switch (right) {
    case Right::Watch:
        return kind != UserKind::Phone;
    case Right::View:
        return true;
    case Right::Upload:
        return kind != UserKind::Viewer;
    case Right::Administer:
        return kind == UserKind::Admin;
    }
    return false;
}

std::string CheckLogin(std::string_view login) {
    std::string wrong = CheckLoginWithout(login, "/?#:%&");
    if (wrong.empty() && platform::HasControl(login))
        wrong = "a login has no characters that change how the text around them is shown";
    return wrong;
}

std::string CheckPassword(std::string_view password, UserKind kind) {
    const std::size_t longest = kind == UserKind::Phone ? kMaxPhonePasswordBytes : 256;
    if (password.empty() || password.size() > longest)
        return "a password of this kind of user has 1 to " + std::to_string(longest) + " bytes";
    if (platform::HasControl(password) || password.find_first_of("&/") != std::string_view::npos)
        return "a password has no control characters and none of & /";
    return {};
}

// "all" has no sign that a name would have escaped, so a camera of that name is told otherwise.
std::string CameraListText(const std::optional<CameraNames>& cameras) {
    if (!cameras)
        return std::string(kAllCameras);
    std::string text;
    for (const std::string& name : *cameras)
        text += (text.empty() ? "" : ",") + (name == kAllCameras ? "%61ll" : PercentEncode(name));
    return text;
}

std::optional<std::optional<CameraNames>> ReadCameraList(std::string_view text) {
    if (text == kAllCameras)
        return std::optional<CameraNames>();
    CameraNames names;
    while (!text.empty()) {
        const auto comma = text.find(',');
        auto name = PercentDecode(text.substr(0, comma));
        if (!name || name->empty() || platform::HasControl(*name))
            return std::nullopt;
        names.insert(*std::move(name));
        text.remove_prefix(comma == std::string_view::npos ? text.size() : comma + 1);
    }
    return std::optional(std::move(names));
}

bool IsWeakPassword(std::string_view password) noexcept {
    // Bytes of UTF-8 that begin a character.
    const auto begins = [](char c) { return (static_cast<unsigned char>(c) & 0xC0U) != 0x80U; };
    return static_cast<std::size_t>(std::ranges::count_if(password, begins)) < kGoodPasswordCharacters;
}

std::shared_ptr<Store> UserStore::InFile(std::string path) {
    return std::make_shared<TextStore>(
        std::move(path),
        TextStore::Format{
            .title = "# Users of the host: login, kind (admin, viewer, phone), mark, password hash, and "
                     "where there is one a list of cameras.\n"
                     "# Add one with: morrowstream-host --data FOLDER --add-user NAME --kind KIND",
            .what = "users file",
            .key = "login",
            .check = [](const TextLine& line) { return ReadUser(line).wrong; },
            .strict = true});
}

bool UserStore::IsAdmin(std::string_view value) noexcept {
    return value.substr(0, value.find('\t')) == KindName(UserKind::Admin);
}

UserStore::UserStore(std::shared_ptr<Store> entries) : m_entries(std::move(entries)) {
    (void)Refresh();
}

bool UserStore::Refresh() {
    return Take(m_entries.Refresh());
}

bool UserStore::Take(std::span<const Store::Update> updates) {
    for (const auto& [login, value, revision] : updates) {
        const auto lines = ReadTextTable(login + '\t' + value.value_or(""));
        ReadLine read = value && lines.size() == 1 ? ReadUser(lines[0]) : ReadLine{"no user", {}};
        if (read.wrong.empty())
            Set(login, std::move(read.user));
        else
            Remove(login);
    }
    return !updates.empty();
}

void UserStore::Set(const std::string& login, User user) {
    m_users.insert_or_assign(login, std::move(user));
}

void UserStore::Remove(std::string_view login) {
    if (const auto found = m_users.find(login); found != m_users.end())
        m_users.erase(found);
}

std::vector<Store::Change> UserStore::ChangesTo(const UserMap& wanted) const {
    StoreMirror::Values values;
    for (const auto& [login, user] : wanted)
        values.emplace_hint(values.end(), login, ValueOf(user));
    return m_entries.ChangesTo(values);
}

void UserStore::Settle(std::span<const Store::Change> changes, std::span<const Store::Outcome> outcomes) {
    (void)Take(m_entries.Settle(changes, outcomes));
}

void UserStore::Save() {
    const auto changes = ChangesTo(m_users);
    const auto outcomes = Source()->Write(changes);
    Settle(changes, outcomes);
    for (const Store::Outcome& outcome : outcomes) {
        if (outcome.result == Store::Result::Conflict)
            throw StartError("somebody else is changing the users at the same time: try again");
        if (outcome.result != Store::Result::Done)
            throw StartError(outcome.why);
    }
}

} // namespace host
