// The folder with everything that the host keeps.
#pragma once

#include <optional>
#include <string>
#include <vector>

#include "host/base/wait.h"
#include "host/users/cameras.h"
#include "host/users/user_store.h"

namespace host {

// The user that the first start makes; its password stands in a file of its own until it has another one.
inline constexpr std::string_view kFirstAdmin = "admin";

class DataFolder {
public:
    // Makes the folder if it is missing. What group and others may write in a folder of ours they may not any
    // more, and that is said. Throws StartError when it cannot be made or written to, and for somebody else's
    // folder that others may write to.
    explicit DataFolder(const std::string& path);

    // For the life of a host: two of them on one folder would overwrite each other. Throws StartError.
    void Lock();

    [[nodiscard]] const std::string& Path() const noexcept { return m_path; }
    [[nodiscard]] std::string File(const std::string& name) const { return m_path + "/" + name; }

    // Reads "users". When there is no administrator, makes one and writes its password to "admin-password";
    // the result then says so in `*adminMade`. With a store, the users are those of it.
    UserStore OpenUsers(bool* adminMade, std::shared_ptr<Store> store = nullptr);
    // Reads "cameras"; empty without the file. A line that is no camera is left out, and said. Throws
    // StartError when the file cannot be read.
    [[nodiscard]] std::vector<CameraEntry> ReadCameras() const;
    // Gives that file another name once its cameras are stored, so that one which is removed later stays
    // away. Returns the new path; empty without the file. Nobody but its owner can read it from then on, and
    // an older one that others could read is taken from them, which is said.
    [[nodiscard]] std::string KeepCameras() const;
    // Puts these in place of what stands in "cameras". Throws StartError.
    void WriteCameras(const std::vector<CameraEntry>& cameras) const;
    // The administrator's first password; nothing once it is another one.
    [[nodiscard]] std::optional<std::string> FirstAdminPassword() const;
    // Once the password is another one.
    void ForgetAdminPassword() const;

private:
    std::string m_path;
    Descriptor m_lock;
};

} // namespace host
