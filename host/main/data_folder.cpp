#include "host/main/data_folder.h"

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
#include "platform/files.h"
#include "platform/registry.h"

namespace host {

DataFolder::DataFolder(std::string path) {
    std::error_code error;
    m_path = std::filesystem::absolute(path, error).lexically_normal().string();
    while (m_path.size() > 1 && m_path.ends_with('/'))
        m_path.pop_back();
    if (error || FAILED(platform::CreateFolder(m_path)))
        throw StartError("cannot make the data folder " + path);
    if (::access(m_path.c_str(), R_OK | W_OK | X_OK) != 0)
        throw StartError("the data folder " + m_path +
                         " is not writable: " + std::generic_category().message(errno));
    if (const std::string wrong = platform::SetRegistryFile(File("registry")); !wrong.empty())
        Console::Get().Say("The registry is damaged and counts as empty: " + wrong);
}

void DataFolder::Lock() {
    m_lock = Descriptor(::open(File("lock").c_str(), O_RDWR | O_CREAT | O_CLOEXEC, 0600));
    if (!m_lock)
        throw StartError("the data folder " + m_path +
                         " is not writable: " + std::generic_category().message(errno));
    if (::flock(m_lock.Get(), LOCK_EX | LOCK_NB) != 0)
        throw StartError("another host runs on the data folder " + m_path);
}

UserStore DataFolder::OpenUsers(bool* adminMade) {
    UserStore users(File("users"));
    *adminMade = false;
    for (const auto& [login, user] : users.Users()) {
        if (user.kind == UserKind::Admin)
            return users;
    }
    const std::string password = RandomPassword();
    users.Set("admin", {UserKind::Admin, false, HashPassword(password)});
    // The password first: a crash in between leaves no administrator whom nobody can be.
    if (FAILED(platform::ReplaceFile(File("admin-password"), password + "\n", 0600)))
        throw StartError("cannot write " + File("admin-password"));
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
        throw StartError("cannot read " + path);
    std::vector<CameraEntry> cameras;
    std::set<std::string> names;
    for (const TextLine& line : ReadTextTable(*content)) {
        const auto bad = [&](std::string_view what) {
            return StartError(path + ", line " + std::to_string(line.number) + ": " + std::string(what));
        };
        if (line.fields.size() != 3)
            throw bad("a camera has three fields: name, type, password");
        const CameraEntry camera{line.fields[0], line.fields[1], line.fields[2]};
        if (const std::string wrong = CheckLogin(camera.name); !wrong.empty())
            throw bad("a camera's name is its phone's login: " + wrong);
        if (camera.type != "320x240" && camera.type != "160x120")
            throw bad("the type of a camera is 320x240 or 160x120");
        if (const std::string wrong = CheckPassword(camera.password, UserKind::Phone); !wrong.empty())
            throw bad(wrong);
        if (!names.insert(camera.name).second)
            throw bad("this camera stands there twice");
        cameras.push_back(camera);
    }
    return cameras;
}

std::string DataFolder::KeepCameras() const {
    const std::string kept = File("cameras.stored");
    if (::rename(File("cameras").c_str(), kept.c_str()) == 0)
        return kept;
    if (errno != ENOENT)
        throw StartError("cannot rename " + File("cameras") + ": " + std::generic_category().message(errno));
    return {};
}

} // namespace host
