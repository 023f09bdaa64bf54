// Adds users from the command line.
#include "host/main/options.h"

#include <unistd.h>

#include "host/base/start_error.h"
#include "host/base/text_table.h"
#include "host/log/console.h"
#include "host/main/data_folder.h"
#include "host/main/membership.h"
#include "host/users/password.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/terminal.h"

namespace host {
namespace {

using CameraWish = std::optional<std::optional<CameraNames>>; // nothing: as it is

User MakeUser(const UserStore& users, const std::string& login, UserKind kind, const std::string& password,
              const CameraWish& cameras) {
    // A user who is there may get a new password, whatever the login looks like.
    const auto former = users.Users().find(login);
    const bool there = former != users.Users().end();
    std::string wrong = there ? std::string() : CheckLogin(login);
    if (wrong.empty())
        wrong = CheckPassword(password, kind);
    if (!wrong.empty())
        throw StartError("user \"" + Printable(login) + "\": " + wrong);
    return {kind, false, HashPassword(password),
            cameras.value_or(there ? former->second.cameras : std::nullopt)};
}

std::string_view KindText(UserKind kind) {
    switch (kind) {
    case UserKind::Admin:
        return "an administrator";
    case UserKind::Viewer:
        return "a viewer";
    case UserKind::Phone:
        break;
    }
    return "a phone";
}

// What is changed in the files of such a folder is not what the other hosts have, and does not last.
void RefuseOfCluster(const DataFolder& data) {
    if (Membership::IsOfCluster(data))
        throw StartError("the data folder " + data.Path() +
                         " is one of a cluster: change its users at /users, or with /api/v1/users");
}

} // namespace

std::string AskPassword(const std::string& login) {
    const auto ask = [](const std::string& prompt) {
        auto line = platform::ReadSecretLine(prompt);
        if (!line)
            throw StartError("no password on standard input");
        return *line;
    };
    std::string password = ask("Password for " + Printable(login) + ": ");
    if (::isatty(STDIN_FILENO) == 1 && ask("The same again: ") != password)
        throw StartError("these are two passwords: nothing is changed");
    return password;
}

int AddUser(const Options& options) {
    const std::string password = AskPassword(options.userName);
    DataFolder data(options.data);
    RefuseOfCluster(data);
    bool adminMade = false;
    UserStore users = data.OpenUsers(&adminMade);
    users.Set(options.userName,
              MakeUser(users, options.userName, options.userKind, password, options.userCameras));
    users.Save();
    if (options.userName == kFirstAdmin)
        data.ForgetAdminPassword();
    Console::Get().Say("User \"" + Printable(options.userName) + "\" is " +
                       std::string(KindText(options.userKind)) + " now.");
    if (IsWeakPassword(password))
        Console::Get().Say("The password is short: with " + std::to_string(kGoodPasswordCharacters) +
                           " characters or more it is harder to guess.");
    return 0;
}

int AddUsers(const Options& options) {
    const auto content = platform::ReadWholeFile(options.usersFile);
    if (!content)
        throw StartError("cannot read " + options.usersFile + ": " + platform::DescribeLastError());
    DataFolder data(options.data);
    RefuseOfCluster(data);
    bool adminMade = false;
    UserStore users = data.OpenUsers(&adminMade);
    std::size_t count = 0;
    std::size_t weak = 0;
    bool first = false;
    for (const TextLine& line : ReadTextTable(*content)) {
        const bool listed = line.fields.size() == 4;
        const auto kind = listed || line.fields.size() == 3 ? KindFromName(line.fields[1]) : std::nullopt;
        const auto cameras = listed ? ReadCameraList(line.fields[3]) : CameraWish();
        if (!kind || (listed && !cameras))
            throw StartError(options.usersFile + ", line " + std::to_string(line.number) +
                             ": a user has three fields: login, kind (admin, viewer, phone), password; and a "
                             "fourth one for a list of cameras");
        users.Set(line.fields[0], MakeUser(users, line.fields[0], *kind, line.fields[2], cameras));
        ++count;
        weak += IsWeakPassword(line.fields[2]) ? 1 : 0;
        first = first || line.fields[0] == kFirstAdmin;
    }
    users.Save();
    if (first)
        data.ForgetAdminPassword();
    Console::Get().Say(std::to_string(count) + (count == 1 ? " user is in place." : " users are in place."));
    if (weak > 0)
        Console::Get().Say(std::to_string(weak) + " of their passwords are short: with " +
                           std::to_string(kGoodPasswordCharacters) +
                           " characters or more they are harder to guess.");
    return 0;
}

} // namespace host
