#include "platform/folders.h"

#include <sys/stat.h>

#include <algorithm>
#include <mutex>

#include "platform/files.h"
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
