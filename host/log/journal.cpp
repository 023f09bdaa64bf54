#include "host/log/journal.h"

#include <cstdio>
#include <cstdlib>

#include <sys/stat.h>

namespace host {

bool IsJournal(int fd) noexcept {
    const char* const stream = std::getenv("JOURNAL_STREAM");
    unsigned long long device = 0;
    unsigned long long inode = 0;
    int read = 0;
    // Inherited by every program that a service starts, so the stream may be another one by now.
    struct stat status {};
    return stream != nullptr && std::sscanf(stream, "%llu:%llu%n", &device, &inode, &read) == 2 &&
           stream[read] == '\0' && ::fstat(fd, &status) == 0 && status.st_dev == device &&
           status.st_ino == inode;
}

int LevelOf(std::string_view channel) noexcept {
    constexpr int kError = 3;
    constexpr int kNotice = 5;
    constexpr int kInfo = 6;
    constexpr int kDebug = 7;
    if (channel == "error")
        return kError;
    if (channel == "TRASSDO")
        return kNotice;
    return channel == "FPS" ? kDebug : kInfo;
}

} // namespace host
