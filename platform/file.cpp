#include "platform/file.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <cerrno>
#include <utility>

#include "platform/status.h"

namespace platform {

namespace {

std::nullopt_t Fail() noexcept {
    SetLastError(ErrorFromErrno(errno));
    return std::nullopt;
}

} // namespace

File::File(File&& other) noexcept : m_descriptor(std::exchange(other.m_descriptor, -1)) {}

File::~File() {
    if (m_descriptor >= 0)
        ::close(m_descriptor);
}

std::optional<File> File::OpenForReading(const std::string& path) {
    if (path.find('\0') != std::string::npos) {
        errno = ENOENT;
        return Fail();
    }
    File file(::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK));
    if (file.m_descriptor < 0)
        return Fail();
    return file;
}

std::optional<std::uint64_t> File::Position() const noexcept {
    const ::off_t position = ::lseek(m_descriptor, 0, SEEK_CUR);
    if (position < 0)
        return Fail();
    return static_cast<std::uint64_t>(position);
}

std::optional<std::uint64_t> File::Size() const noexcept {
    struct stat status {};
    if (::fstat(m_descriptor, &status) != 0)
        return Fail();
    if (!S_ISREG(status.st_mode)) {
        errno = ESPIPE;
        return Fail();
    }
    return static_cast<std::uint64_t>(status.st_size);
}

std::optional<std::size_t> File::ReadAt(std::uint64_t position,
                                        std::span<std::uint8_t> bytes) const noexcept {
    std::size_t size = 0;
    while (size < bytes.size()) {
        const ::ssize_t count = ::pread(m_descriptor, bytes.data() + size, bytes.size() - size,
                                        static_cast<::off_t>(position + size));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return Fail();
        if (count == 0)
            break;
        size += static_cast<std::size_t>(count);
    }
    return size;
}

} // namespace platform
