// The folder of all recordings: who is in it, and where a file stands. It is its owner's alone.
#pragma once

#include <cstdint>
#include <map>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/recordings/disk.h"
#include "host/recordings/recorded.h"

namespace host {

// Any thread, once it is open.
class RecordingsFolder {
public:
    RecordingsFolder(std::string path, Disk& disk) : m_path(std::move(path)), m_disk(disk) {}

    struct Content {
        std::vector<RecordedCamera> cameras; // in the order of their ids
        // Of each camera, as the folder shows them: the end and the state are not known, they are what the
        // index has.
        std::map<std::int64_t, std::vector<RecordedFile>> files;
    };
    // Makes the folder where it is missing, and keeps other hosts out of it. Throws RecordingError, as Look.
    void Open();
    [[nodiscard]] Content Look() const;

    [[nodiscard]] const std::string& Path() const noexcept { return m_path; }
    [[nodiscard]] std::string PathOf(const RecordedFile& file) const;
    // With its folders. Throws RecordingError.
    void MakePlaceFor(const RecordedFile& file) const;
    // What is to be known of a camera besides its files. Throws RecordingError.
    void Write(const RecordedCamera& camera) const;
    // Removes the file, and the folder of its day with the last one. What is left of that by a crash is
    // removed by the next call. Throws RecordingError.
    void Remove(const RecordedFile& file) const;
    // Removes what is left of a camera without files.
    void Remove(const RecordedCamera& camera) const;

    [[nodiscard]] bool IsKept(const RecordedFile& file) const;
    // Throws RecordingError.
    void Keep(const RecordedFile& file, bool keep) const;

private:
    [[nodiscard]] RecordedCamera ReadCamera(std::int64_t id, const std::vector<RecordedFile>& files) const;
    [[nodiscard]] std::vector<RecordedFile> ReadFiles(std::int64_t id) const;

    const std::string m_path;
    Disk& m_disk;
    platform::Descriptor m_lock;
};

// --- Names and places ---
//
// Of recordings below the folder: <camera id>/<UTC day>/<UTC begin>_<number>.mkv, as in
// 3/2026-11-26/2026-11-26_07-16-54.123_17.mkv. A file that is kept has an empty one beside it, with ".keep"
// behind its name.

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
