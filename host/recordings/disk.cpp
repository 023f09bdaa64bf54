#include "host/recordings/disk.h"

#include <cerrno>

#include <fcntl.h>
#include <sys/statvfs.h>
#include <unistd.h>

namespace host {

std::optional<Disk::Space> Disk::SpaceAt(const std::string& path) const {
    struct statvfs info {};
    if (::statvfs(path.c_str(), &info) != 0)
        return std::nullopt;
    return Space{std::uint64_t{info.f_bavail} * info.f_frsize, std::uint64_t{info.f_blocks} * info.f_frsize};
}

platform::Descriptor Disk::Create(const std::string& path) {
    return platform::Descriptor(
        ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_NOFOLLOW | O_CLOEXEC, 0600));
}

bool Disk::Write(int file, std::uint64_t position, std::span<const std::uint8_t> bytes) {
    while (!bytes.empty()) {
        const ssize_t written = ::pwrite(file, bytes.data(), bytes.size(), static_cast<off_t>(position));
        if (written < 0 && errno == EINTR)
            continue;
        if (written <= 0) {
            if (written == 0)
                errno = ENOSPC;
            return false;
        }
        position += static_cast<std::uint64_t>(written);
        bytes = bytes.subspan(static_cast<std::size_t>(written));
    }
    return true;
}

bool Disk::Remove(const std::string& path) {
    return ::unlink(path.c_str()) == 0 || errno == ENOENT;
}

} // namespace host
