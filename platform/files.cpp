#include "platform/files.h"

#include <fcntl.h>
#include <sys/stat.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdio>

namespace platform {

namespace {

// Files whose size is not known, as in /proc, are read in steps of this many bytes.
constexpr std::size_t kReadStep = 16384;

HRESULT FailWithErrno() noexcept {
    const std::uint32_t error = ErrorFromErrno(errno);
    SetLastError(error);
    return StatusFromError(error);
}

std::nullopt_t NoteErrno() noexcept {
    SetLastError(ErrorFromErrno(errno));
    return std::nullopt;
}

template <class Call>
auto RetryInterrupted(Call call) noexcept {
    decltype(call()) result{};
    do
        result = call();
    while (result < 0 && errno == EINTR);
    return result;
}

// A zero byte would end the path early and name another file. False with errno set.
bool IsUsable(const std::string& path) noexcept {
    if (!path.empty() && path.find('\0') == std::string::npos)
        return true;
    errno = ENOENT;
    return false;
}

// Without waiting for a writer, in case it is a pipe.
int OpenToRead(const std::string& path) noexcept {
    return RetryInterrupted([&] { return ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK); });
}

std::string FolderOf(const std::string& path) {
    const std::size_t slash = path.rfind('/');
    if (slash == std::string::npos)
        return ".";
    return slash == 0 ? "/" : path.substr(0, slash);
}

// False with errno set.
bool WriteAll(const Descriptor& file, std::string_view content) noexcept {
    while (!content.empty()) {
        const ssize_t count =
            RetryInterrupted([&] { return ::write(file.Get(), content.data(), content.size()); });
        if (count < 0)
            return false;
        content.remove_prefix(static_cast<std::size_t>(count));
    }
    return true;
}

// False with errno set.
bool KeepOwner(int made, const std::string& folder) noexcept {
    struct stat status {};
    if (::geteuid() != 0)
        return true; // nobody else can give files away
    return ::stat(folder.c_str(), &status) == 0 &&
           (status.st_uid == 0 || ::fchown(made, status.st_uid, status.st_gid) == 0);
}

// A file beside the target while it is written; removed again unless it was put in place.
class NewFile {
public:
    explicit NewFile(const std::string& folder)
        : m_folder(folder), m_file(Create(folder, m_path)), m_isOurs(m_file) {}
    NewFile(const NewFile&) = delete;
    NewFile& operator=(const NewFile&) = delete;
    ~NewFile() {
        if (m_isOurs)
            ::unlink(m_path.c_str());
    }

    // False with errno set, and nothing was changed but this file.
    [[nodiscard]] bool PutInPlace(const std::string& path, std::string_view content, unsigned mode) noexcept {
        if (!m_file || !KeepOwner(m_file.Get(), m_folder) || ::fchmod(m_file.Get(), mode & 0777) != 0 ||
            !WriteAll(m_file, content) || RetryInterrupted([this] { return ::fsync(m_file.Get()); }) != 0 ||
            !m_file.Close() || ::rename(m_path.c_str(), path.c_str()) != 0)
            return false;
        m_isOurs = false;
        return true;
    }

private:
    // The name does not grow with the target's, which may be as long as the file system allows.
    static int Create(const std::string& folder, std::string& path) {
        static constinit std::atomic<unsigned> counter{0};
        int descriptor = -1;
        do {
            char name[64];
            std::snprintf(name, sizeof name, "/.new-%d-%u", static_cast<int>(::getpid()),
                          counter.fetch_add(1, std::memory_order_relaxed));
            path = folder + name;
            descriptor = RetryInterrupted(
                [&] { return ::open(path.c_str(), O_WRONLY | O_CREAT | O_EXCL | O_CLOEXEC, 0600); });
        } while (descriptor < 0 && errno == EEXIST);
        return descriptor;
    }

    const std::string& m_folder;
    std::string m_path; // before m_file, whose maker fills it
    Descriptor m_file;
    bool m_isOurs; // made here, and not in place yet
};

// True when the file system keeps the folder's new entry, as far as it can tell.
bool SyncFolder(const std::string& folder) noexcept {
    const Descriptor handle(
        RetryInterrupted([&] { return ::open(folder.c_str(), O_RDONLY | O_DIRECTORY | O_CLOEXEC); }));
    return handle && (RetryInterrupted([&] { return ::fsync(handle.Get()); }) == 0 || errno == EINVAL);
}

bool IsFolder(const std::string& path) noexcept {
    struct stat status {};
    return ::stat(path.c_str(), &status) == 0 && S_ISDIR(status.st_mode);
}

} // namespace

std::optional<std::string> ReadWholeFile(const std::string& path, std::size_t limit) {
    const auto fail = [](std::uint32_t error) {
        SetLastError(error);
        return std::nullopt;
    };
    if (!IsUsable(path))
        return fail(ErrorFromErrno(errno));
    const Descriptor file(OpenToRead(path));
    struct stat status {};
    if (!file || ::fstat(file.Get(), &status) != 0)
        return fail(ErrorFromErrno(errno));
    if (!S_ISREG(status.st_mode))
        return fail(kErrorAccessDenied);
    const auto expected = static_cast<std::size_t>(status.st_size);
    if (expected > limit)
        return fail(kErrorInsufficientBuffer);

    // The size is what the file had a moment ago: it may grow, and in some file systems it is always 0. One
    // byte more than expected lets the end show without another step.
    std::string content(expected + 1, '\0');
    std::size_t size = 0;
    for (;;) {
        if (size == content.size())
            content.resize(size + kReadStep);
        const ssize_t count = RetryInterrupted(
            [&] { return ::read(file.Get(), content.data() + size, content.size() - size); });
        if (count < 0)
            return fail(ErrorFromErrno(errno));
        if (count == 0)
            break;
        size += static_cast<std::size_t>(count);
        if (size > limit)
            return fail(kErrorInsufficientBuffer);
    }
    content.resize(size);
    return content;
}

HRESULT ReplaceFile(const std::string& path, std::string_view content, unsigned mode) {
    if (!IsUsable(path))
        return FailWithErrno();
    const std::string folder = FolderOf(path);
    {
        NewFile file(folder);
        if (!file.PutInPlace(path, content, mode))
            return FailWithErrno();
    }
    return SyncFolder(folder) ? S_OK : S_FALSE;
}

HRESULT WriteWholeFile(const std::string& path, std::string_view content, unsigned mode) {
    if (!IsUsable(path))
        return FailWithErrno();
    Descriptor file(RetryInterrupted([&] {
        return ::open(path.c_str(), O_WRONLY | O_CREAT | O_TRUNC | O_NOFOLLOW | O_NONBLOCK | O_CLOEXEC, 0600);
    }));
    if (!file || ::fchmod(file.Get(), mode & 0777) != 0 || !WriteAll(file, content) || !file.Close())
        return FailWithErrno();
    return S_OK;
}

HRESULT RemoveFile(const std::string& path) {
    return IsUsable(path) && ::unlink(path.c_str()) == 0 ? S_OK : FailWithErrno();
}

HRESULT RemoveFolder(const std::string& path) {
    return IsUsable(path) && ::rmdir(path.c_str()) == 0 ? S_OK : FailWithErrno();
}

FileStamp StampOf(const std::string& path) noexcept {
    struct stat info {};
    if (::stat(path.c_str(), &info) != 0)
        return {};
    return {info.st_ino, info.st_mtim.tv_sec, info.st_mtim.tv_nsec};
}

HRESULT CreateFolder(const std::string& path) {
    if (!IsUsable(path))
        return FailWithErrno();
    for (std::size_t end = 0; end < path.size();) {
        end = path.find('/', end + 1);
        const std::string part = path.substr(0, end);
        // What is there already is welcome, whoever made it and whatever mkdir has against it.
        if (::mkdir(part.c_str(), 0700) != 0) {
            const int reason = errno;
            if (!IsFolder(part)) {
                errno = reason;
                return FailWithErrno();
            }
            continue;
        }
        const Descriptor made(::open(part.c_str(), O_RDONLY | O_DIRECTORY | O_NOFOLLOW | O_CLOEXEC));
        if (!made || !KeepOwner(made.Get(), FolderOf(part)))
            return FailWithErrno();
    }
    return S_OK;
}

std::optional<File> File::OpenForReading(const std::string& path) {
    const int descriptor = IsUsable(path) ? OpenToRead(path) : -1;
    if (descriptor < 0)
        return NoteErrno();
    return File(descriptor);
}

std::optional<std::uint64_t> File::Position() const noexcept {
    const ::off_t position = ::lseek(m_file.Get(), 0, SEEK_CUR);
    if (position < 0)
        return NoteErrno();
    return static_cast<std::uint64_t>(position);
}

std::optional<std::uint64_t> File::Size() const noexcept {
    struct stat status {};
    if (::fstat(m_file.Get(), &status) != 0)
        return NoteErrno();
    if (!S_ISREG(status.st_mode)) {
        errno = ESPIPE;
        return NoteErrno();
    }
    return static_cast<std::uint64_t>(status.st_size);
}

std::optional<std::size_t> File::ReadAt(std::uint64_t position,
                                        std::span<std::uint8_t> bytes) const noexcept {
    std::size_t size = 0;
    while (size < bytes.size()) {
        const ::ssize_t count = ::pread(m_file.Get(), bytes.data() + size, bytes.size() - size,
                                        static_cast<::off_t>(position + size));
        if (count < 0 && errno == EINTR)
            continue;
        if (count < 0)
            return NoteErrno();
        if (count == 0)
            break;
        size += static_cast<std::size_t>(count);
    }
    return size;
}

} // namespace platform
