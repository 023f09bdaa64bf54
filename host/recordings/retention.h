// What goes, so that recordings stay within their days, their bytes and the room that the disk shall have
// left.
#pragma once

#include <cstdint>
#include <functional>
#include <map>
#include <optional>
#include <string>
#include <vector>

#include "host/recordings/disk.h"
#include "host/recordings/index.h"

namespace host {

// 0 is no limit everywhere.
struct RetentionLimits {
    struct Camera {
        int days = 0; // as for all
        std::uint64_t bytes = 0;
    };
    int days = 7;
    std::uint64_t bytes = 0;
    // What stays free on the disk: the larger one of the two.
    int freePercent = 5;
    std::uint64_t freeBytes = 2'048'000'000;
    std::map<std::string, Camera, std::less<>> cameras; // by name; of those in the settings
};

struct RetentionStep {
    enum class Kind {
        Nothing,
        Remove, // that file
        End,    // that file is being written and has to end first
        Pause   // nothing may be recorded, for that reason
    };
    Kind kind = Kind::Nothing;
    RecordedFile file;
    std::string reason;
};

// The next thing to do; asked again until it is nothing. The oldest file goes first; one that is kept never,
// but its bytes count, and so do those of files that are being written. `space` is the disk's after what has
// been removed already; `paused` asks for a little more of it, so that recording does not stutter at the
// limit. Throws IndexError.
RetentionStep NextRetentionStep(Index& index, const std::vector<RecordedCamera>& cameras,
                                const RetentionLimits& limits, UnixMs now,
                                const std::optional<Disk::Space>& space, bool paused);

} // namespace host
