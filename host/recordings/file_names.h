// Names and places of recordings below their folder: <camera id>/<UTC day>/<UTC begin>_<number>.mkv, as in
// 3/2026-11-26/2026-11-26_07-16-54.123_17.mkv. A file that is kept has an empty one beside it, with ".keep"
// behind its name.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "host/recordings/recorded.h"

namespace host {

inline constexpr std::string_view kKeepSuffix = ".keep";

// Relative to the folder of all recordings.
std::string RelativePathOf(const RecordedFile& file);

struct FileName {
    UnixMs begin = 0;
    std::int64_t number = 0;
};
// Nothing for a name that RelativePathOf does not make.
std::optional<FileName> ParseFileName(std::string_view name);
// The number of a camera's folder; nothing for another name.
std::optional<std::int64_t> ParseCameraId(std::string_view name);

} // namespace host
