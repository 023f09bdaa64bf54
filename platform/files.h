// Files, and folders for them: those that the system knows by number, the one for files of the moment. Paths
// are bytes in UTF-8, but for the names of files as the component writes them.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <span>
#include <string>
#include <string_view>

#include "platform/export.h"
#include "platform/scope.h"
#include "platform/status.h"

namespace platform {

// The whole file. Nothing, with the last error set, when it cannot be read, is not a regular file
// (kErrorAccessDenied) or is larger than `limit` bytes (kErrorInsufficientBuffer).
MORROW_PLATFORM_API std::optional<std::string> ReadWholeFile(const std::string& path,
                                                             std::size_t limit = std::size_t{64} << 20);

// Replaces a file: a new file beside it is written, synced and renamed, and the folder synced, so that a
// crash at any point leaves the old or the new content. `mode` are the permission bits of the new file. On
// failure the old file is as it was. S_FALSE: replaced, but the folder could not be synced, so that a crash
// may still bring the old content back. A symbolic link in its place is replaced, not followed. What root
// writes into somebody's folder belongs to them: a service that lives there could not read it else.
MORROW_PLATFORM_API HRESULT ReplaceFile(const std::string& path, std::string_view content,
                                        unsigned mode = 0600);

// Writes a file in its place, whatever was in it, for files of the moment: a crash may leave a part. `mode`
// is what the file then has. A symbolic link is not followed.
MORROW_PLATFORM_API HRESULT WriteWholeFile(const std::string& path, std::string_view content,
                                           unsigned mode = 0600);

MORROW_PLATFORM_API HRESULT RemoveFile(const std::string& path);

// Tells whether a file was replaced or changed: a new one has another inode or another time. All zero for one
// that is not there.
struct FileStamp {
    unsigned long long inode = 0;
    long long seconds = 0;
    long nanoseconds = 0;
    friend bool operator==(const FileStamp&, const FileStamp&) = default;
};
MORROW_PLATFORM_API FileStamp StampOf(const std::string& path) noexcept;

// Creates the folder and those above it that are missing, with mode 0700 and the owner of the folder that
// they stand in.
MORROW_PLATFORM_API HRESULT CreateFolder(const std::string& path);
// Removes a folder that is empty.
MORROW_PLATFORM_API HRESULT RemoveFolder(const std::string& path);

// The number of the folder for data that all users of the machine share.
inline constexpr int kFolderCommonData = 35;

// The folder in UTF-8, made if it is missing, without a separator at its end; empty, with the last error set,
// when there is no folder of that number or it cannot be made. The common data folder is /var/lib until the
// host sets another one at its start.
MORROW_PLATFORM_API std::string KnownFolder(int number);
MORROW_PLATFORM_API void SetCommonDataFolder(std::string path);

// The folder for temporary files in UTF-8, with a separator at its end; empty, with the last error set, when
// there is none. It is a private one of this process (mode 0700), made by the first call in the folder that
// the host has set, or in the system's, and removed with all that is in it when the process exits.
MORROW_PLATFORM_API std::string TemporaryFolder();

// Where to make it; for the host's start, before the first use.
MORROW_PLATFORM_API void SetTemporaryParent(std::string folder);

// The path in UTF-8 of a file that the component names in its own way: with "\" between the folders.
MORROW_PLATFORM_API std::string NativePath(std::u16string_view path);

// What the file's attributes say of its size, bytes. Nothing when there is no such file.
MORROW_PLATFORM_API std::optional<std::uint64_t> FileSize(std::u16string_view path);

// One open file, read at places of the reader's choice. Reading at a place leaves the file's own position
// alone, so several threads may read from one object.
class MORROW_PLATFORM_API File {
public:
    // Takes ownership of a descriptor.
    explicit File(int descriptor) noexcept : m_file(descriptor) {}

    // Nothing, with the last error set, for what cannot be opened. Never waits for a pipe's other end.
    static std::optional<File> OpenForReading(const std::string& path);

    // The position and the size in bytes; nothing for what has none, as a pipe.
    [[nodiscard]] std::optional<std::uint64_t> Position() const noexcept;
    [[nodiscard]] std::optional<std::uint64_t> Size() const noexcept;
    // Fills `bytes` from `position` on. The count is less than asked for at the end of the file alone;
    // nothing, with the last error set, for a failure.
    [[nodiscard]] std::optional<std::size_t> ReadAt(std::uint64_t position,
                                                    std::span<std::uint8_t> bytes) const noexcept;

private:
    Descriptor m_file;
};

} // namespace platform
