#include "platform/temporary_folder.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <filesystem>
#include <mutex>
#include <utility>

#include "platform/status.h"

namespace platform {

namespace {

bool IsOurs(std::string path) noexcept {
    path.pop_back(); // the separator, behind which a link would be followed
    struct stat status {};
    return ::lstat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode) && status.st_uid == ::geteuid() &&
           (status.st_mode & 077) == 0;
}

// Removed by the process that made it alone, not by a child that it forked.
class PrivateFolder {
public:
    PrivateFolder() = default;
    PrivateFolder(const PrivateFolder&) = delete;
    PrivateFolder& operator=(const PrivateFolder&) = delete;
    ~PrivateFolder() {
        if (m_path.empty() || m_owner != ::getpid() || !IsOurs(m_path))
            return;
        std::error_code ignored;
        std::filesystem::remove_all(m_path, ignored);
    }

    void SetParent(std::string folder) {
        const std::scoped_lock guard(m_mutex);
        m_parent = std::move(folder);
    }

    std::string Get() {
        const std::scoped_lock guard(m_mutex);
        // A cleaner of old files may have taken it, and somebody else its name.
        if (m_path.empty() || !IsOurs(m_path)) {
            std::string path = m_parent + "/morrowstream-XXXXXX";
            if (::mkdtemp(path.data()) == nullptr) {
                SetLastError(ErrorFromErrno(errno));
                return {};
            }
            m_path = path + "/";
            m_owner = ::getpid();
        }
        return m_path;
    }

private:
    std::mutex m_mutex;
    std::string m_parent = "/tmp"; // under m_mutex, as the rest
    std::string m_path;
    ::pid_t m_owner = 0;
};

PrivateFolder& Folder() {
    static PrivateFolder folder;
    return folder;
}

} // namespace

std::string TemporaryFolder() {
    return Folder().Get();
}

void SetTemporaryParent(std::string folder) {
    Folder().SetParent(std::move(folder));
}

} // namespace platform
