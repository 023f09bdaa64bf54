#include "platform/files.h"

#include <stdlib.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <mutex>
#include <utility>

#include "platform/text.h"

namespace platform {

namespace {

struct CommonFolder {
    std::mutex mutex;
    std::string path = "/var/lib"; // under the mutex
};

CommonFolder& Common() {
    static CommonFolder folder;
    return folder;
}

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

std::string KnownFolder(int number) {
    if (number != kFolderCommonData) {
        SetLastError(kErrorInvalidParameter);
        return {};
    }
    std::string path;
    {
        const std::scoped_lock guard(Common().mutex);
        path = Common().path;
    }
    // Its status is the last error, too.
    return SUCCEEDED(CreateFolder(path)) ? path : std::string();
}

void SetCommonDataFolder(std::string path) {
    while (path.size() > 1 && path.ends_with('/'))
        path.pop_back();
    const std::scoped_lock guard(Common().mutex);
    Common().path = std::move(path);
}

std::string TemporaryFolder() {
    return Folder().Get();
}

void SetTemporaryParent(std::string folder) {
    Folder().SetParent(std::move(folder));
}

std::string NativePath(std::u16string_view path) {
    std::string native = ToUtf8(path);
    std::ranges::replace(native, '\\', '/');
    return native;
}

std::optional<std::uint64_t> FileSize(std::u16string_view path) {
    struct stat status {};
    if (::stat(NativePath(path).c_str(), &status) != 0)
        return std::nullopt;
    return static_cast<std::uint64_t>(status.st_size);
}

} // namespace platform
