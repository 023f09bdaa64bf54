// Folders that the system knows by number, the one for files of the moment, and the names of files as the
// component writes them.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/export.h"
#include "platform/status.h"

namespace platform {

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

} // namespace platform
