// Files that lie in the folder of recordings and that the index does not know as they are: after a crash,
// where a person has been at work, or since the index was lost.
#pragma once

#include <cstdint>
#include <deque>
#include <map>
#include <optional>
#include <set>
#include <vector>

#include "host/recordings/folder.h"
#include "host/recordings/index.h"

namespace host {

// One thread at a time.
class Adoption {
public:
    // Both outlive this.
    Adoption(const RecordingsFolder& folder, Disk& disk) : m_folder(folder), m_disk(disk) {}

    // What the folder holds, by camera: all of it is to be compared with the index, and nothing that was
    // found before.
    void Begin(std::map<std::int64_t, std::vector<RecordedFile>> found);
    // Has the index show those files and no other ones, then looks into some of those whose end nobody knows,
    // and makes whole what a crash has cut. `begun`: files that are begun since are shown by those who write
    // them. Throws IndexError; what was not done is by the next call.
    void GoOn(Index& index, const std::set<FileKey>& begun);
    [[nodiscard]] bool IsDone() const noexcept { return m_found.empty() && m_unknown.empty(); }

private:
    void Compare(Index& index, std::int64_t camera, const std::vector<RecordedFile>& found,
                 const std::set<FileKey>& begun);
    void ExamineSome(Index& index);
    [[nodiscard]] std::optional<RecordedFile> Examine(RecordedFile file) const;

    const RecordingsFolder& m_folder;
    Disk& m_disk;
    std::map<std::int64_t, std::vector<RecordedFile>> m_found; // to be compared
    std::deque<RecordedFile> m_unknown; // files that nobody knows the end of, or that a crash has cut
};

} // namespace host
