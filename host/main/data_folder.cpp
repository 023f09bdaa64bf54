#include "host/main/data_folder.h"

#include <algorithm>
#include <cerrno>
#include <cstdio>
#include <filesystem>
#include <set>
#include <system_error>

#include <fcntl.h>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/base/start_error.h"
#include "host/base/text_table.h"
#include "host/log/console.h"
#include "host/users/password.h"
#include "kit/component/component.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace host {

namespace {

std::string ErrorText() {
    return std::generic_category().message(errno);
}

// Takes the right to write from group and others: they could give the host users and settings of their own.
// Throws StartError for a folder that is not ours to change, or that is meant for all, like /tmp.
void KeepOthersFromWriting(const std::string& path) {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        throw StartError("cannot look at the data folder " + path + ": " + ErrorText());
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) == 0)
        return;
    if ((info.st_mode & S_ISVTX) != 0)
        throw StartError("the folder " + path +
                         " is shared by the users of this machine: make one in it, --data " + path +
                         "/morrowstream");
    if (info.st_uid != ::geteuid() || ::chmod(path.c_str(), info.st_mode & 07777U & ~022U) != 0)
        throw StartError("the data folder " + path +
                         " belongs to another user, and others may write into it; mend it " +
                         "with: sudo chmod go-w '" + path + "'");
    Console::Get().Say("Others could write into the data folder " + path + ": they cannot any more.");
}

// Takes a file with passwords from everybody but its owner. True when somebody else could read or write it. A
// link is not followed: in somebody else's folder it could lead to any file of ours.
bool KeepOthersFromReading(const std::string& path) {
    const Descriptor file(::open(path.c_str(), O_RDONLY | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC));
    struct stat info {};
    if (!file || ::fstat(file.Get(), &info) != 0 || !S_ISREG(info.st_mode) || (info.st_mode & 077U) == 0)
        return false;
    if (::fchmod(file.Get(), 0600) == 0)
        return true;
    const auto content = platform::ReadWholeFile(path); // somebody else's, who let us read it
    return content && SUCCEEDED(platform::ReplaceFile(path, *content, 0600));
}

// Reads a line of "cameras". Throws StartError for one that is no camera; `names` are those of the lines
// before.
CameraEntry ReadCamera(const TextLine& line, std::set<std::string>& names) {
    if (line.fields.size() != 3)
        throw StartError("a camera has three fields: name, type, password");
    CameraEntry camera{line.fields[0], line.fields[1], line.fields[2]};
    if (const std::string wrong = CheckLogin(camera.name); !wrong.empty())
        throw StartError("a camera's name is its phone's login: " + wrong);
    if (std::ranges::find(kCameraTypes, camera.type) == std::end(kCameraTypes))
        throw StartError("the type of a camera is 320x240 or 160x120");
    if (const std::string wrong = CheckPassword(camera.password, UserKind::Phone); !wrong.empty())
        throw StartError(wrong);
    if (!names.insert(camera.name).second)
        throw StartError("this camera stands there twice");
    return camera;
}

} // namespace

DataFolder::DataFolder(const std::string& path) {
    std::error_code error;
    m_path = std::filesystem::absolute(path, error).lexically_normal().string();
    while (m_path.size() > 1 && m_path.ends_with('/'))
        m_path.pop_back();
    if (error || FAILED(platform::CreateFolder(m_path)))
        throw StartError("cannot make the data folder " + path);
    if (::access(m_path.c_str(), R_OK | W_OK | X_OK) != 0)
        throw StartError("the data folder " + m_path + " is not writable: " + ErrorText());
    KeepOthersFromWriting(m_path);
    if (const std::string wrong = kit::SetDataFolder(m_path); !wrong.empty())
        Console::Get().Say("The registry counts as empty: " + wrong);
}

void DataFolder::Lock() {
    m_lock = Descriptor(::open(File("lock").c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!m_lock)
        throw StartError("the data folder " + m_path + " is not writable: " + ErrorText());
    // A service could not open what root left in its folder. A file with a second name may be anybody's.
    struct stat folder {};
    struct stat lock {};
    if (::geteuid() == 0 && ::stat(m_path.c_str(), &folder) == 0 && ::fstat(m_lock.Get(), &lock) == 0 &&
        S_ISREG(lock.st_mode) && lock.st_nlink == 1)
        (void)::fchown(m_lock.Get(), folder.st_uid, folder.st_gid);
    if (::flock(m_lock.Get(), LOCK_EX | LOCK_NB) != 0)
        throw StartError("another host runs on the data folder " + m_path);
}

UserStore DataFolder::OpenUsers(bool* adminMade, std::shared_ptr<Store> store) {
    UserStore users(store ? std::move(store) : UserStore::InFile(File("users")));
    *adminMade = false;
    for (const auto& [login, user] : users.Users()) {
        if (user.kind == UserKind::Admin)
            return users;
    }
    const std::string password = RandomPassword();
    users.Set("admin", {UserKind::Admin, false, HashPassword(password)});
    // The password first: a crash in between leaves no administrator whom nobody can be.
    if (FAILED(platform::ReplaceFile(File("admin-password"), password + "\n", 0600)))
        throw StartError("cannot write " + File("admin-password") + ": " + platform::DescribeLastError());
    users.Save();
    *adminMade = true;
    return users;
}

std::vector<CameraEntry> DataFolder::ReadCameras() const {
    const std::string path = File("cameras");
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0 && errno == ENOENT)
        return {};
    const auto content = platform::ReadWholeFile(path);
    if (!content)
        throw StartError("cannot read " + path + ": " + platform::DescribeLastError());
    std::vector<CameraEntry> cameras;
    std::set<std::string> names;
    for (const TextLine& line : ReadTextTable(*content)) {
        try {
            cameras.push_back(ReadCamera(line, names));
        } catch (const StartError& error) {
            // The other cameras are not to wait for somebody who mends it.
            Console::Get().Say(path + ", line " + std::to_string(line.number) + ": " + error.what() +
                               ". The line is left out.");
        }
    }
    return cameras;
}

void DataFolder::WriteCameras(const std::vector<CameraEntry>& cameras) const {
    std::string content = "# Cameras that the next start takes into the settings: name, type, password.\n";
    for (const CameraEntry& camera : cameras)
        content += camera.name + '\t' + camera.type + '\t' + camera.password + '\n';
    if (FAILED(platform::ReplaceFile(File("cameras"), content, 0600)))
        throw StartError("cannot write " + File("cameras") + ": " + platform::DescribeLastError());
}

std::string DataFolder::KeepCameras() const {
    std::string kept = File("cameras.stored");
    if (::rename(File("cameras").c_str(), kept.c_str()) == 0) {
        (void)KeepOthersFromReading(kept);
        return kept;
    }
    if (errno != ENOENT)
        throw StartError("cannot rename " + File("cameras") + ": " + ErrorText());
    if (KeepOthersFromReading(kept))
        Console::Get().Say("The passwords of cameras in " + kept +
                           " could be read by others, and cannot any more: change those that matter.");
    return {};
}

std::optional<std::string> DataFolder::FirstAdminPassword() const {
    auto password = platform::ReadWholeFile(File("admin-password"));
    if (password)
        password->resize(std::min(password->size(), password->find('\n')));
    return password;
}

void DataFolder::ForgetAdminPassword() const {
    (void)platform::RemoveFile(File("admin-password"));
}

} // namespace host
