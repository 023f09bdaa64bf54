#include "kit/component/component.h"

#include <algorithm>
#include <filesystem>
#include <system_error>

#include <sys/stat.h>
#include <unistd.h>

#include "platform/modules.h"

namespace kit {
namespace {

namespace fs = std::filesystem;

constexpr const char* kProgram = "/proc/self/exe";

// Says what is wrong with the module, or with a folder on the way to it.
std::string WrongWith(const fs::path& part, uid_t builder) {
    struct stat info {};
    if (::lstat(part.c_str(), &info) != 0)
        return " cannot be looked at: " + part.string();
    if (info.st_uid != 0 && info.st_uid != builder)
        return " does not count, since " + part.string() +
               " belongs neither to root nor to the owner of this program: sudo chown root '" +
               part.string() + "'";
    // In a folder like /tmp nobody can put anything in the place of somebody else's.
    const bool shared = S_ISDIR(info.st_mode) && (info.st_mode & S_ISVTX) != 0;
    if ((info.st_mode & (S_IWGRP | S_IWOTH)) != 0 && !shared)
        return " does not count, since others may write to " + part.string() + ": sudo chmod go-w '" +
               part.string() + "'";
    return {};
}

} // namespace

std::string OwnModule() {
    // The file that this code stands in, which the loader may know by a relative name where it is the program
    // itself.
    for (const fs::path& file : {fs::path(platform::FileNameOfModule(&kProgram)), fs::path(kProgram)}) {
        std::error_code error;
        const fs::path folder = fs::canonical(file, error).parent_path();
        if (error || !file.is_absolute())
            continue;
        for (const char* place : {"", "../lib", "../" MORROW_LIBRARY_FOLDER}) {
            const fs::path path = (folder / place / MORROW_MODULE_FILE).lexically_normal();
            if (fs::is_regular_file(path, error))
                return path.string();
        }
    }
    return {};
}

std::string WrongModulePlace(const std::string& path, const std::string& dataFolder) {
    std::error_code error;
    const fs::path place = fs::canonical(path, error);
    if (error || place == fs::canonical(OwnModule(), error))
        return {};
    const fs::path data = fs::canonical(dataFolder, error);
    if (!error && !data.empty() &&
        std::mismatch(data.begin(), data.end(), place.begin(), place.end()).first == data.end())
        return " does not count, since the data folder is no place for programs";
    struct stat program {};
    const uid_t builder = ::stat(kProgram, &program) == 0 ? program.st_uid : 0;
    for (fs::path part = place;; part = part.parent_path()) {
        if (std::string wrong = WrongWith(part, builder); !wrong.empty() || part == part.parent_path())
            return wrong;
    }
}

} // namespace kit
