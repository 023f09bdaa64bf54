#include "host/recordings/adoption.h"

#include <algorithm>
#include <cerrno>
#include <utility>

#include "host/log/console.h"
#include "host/recordings/matroska_reader.h"

namespace host {
namespace {

// So many files are looked into between two looks at what else is to be done.
constexpr std::size_t kExaminedAtOnce = 50;
// A file of fewer bytes may have been cut before its first picture. A larger one without any is damaged, and
// may hold what other programs find.
constexpr std::uint64_t kMostWithoutPicture = 64 * 1024;

} // namespace

void Adoption::Begin(std::map<std::int64_t, std::vector<RecordedFile>> found) {
    m_unknown.clear();
    m_found = std::move(found);
}

void Adoption::GoOn(Index& index, const std::set<FileKey>& begun) {
    for (; !m_found.empty(); m_found.erase(m_found.begin()))
        Compare(index, m_found.begin()->first, m_found.begin()->second, begun);
    ExamineSome(index);
}

void Adoption::Compare(Index& index, std::int64_t camera, const std::vector<RecordedFile>& found,
                       const std::set<FileKey>& begun) {
    std::map<FileKey, RecordedFile> rows;
    for (const RecordedFile& row : index.FilesOf(camera))
        rows.emplace(row.key, row);
    std::vector<RecordedFile> unknown;
    Index::Change change(index);
    for (RecordedFile file : found) {
        const auto row = rows.find(file.key);
        const bool known = row != rows.end() && row->second.state == FileState::Finished &&
                           row->second.bytes == file.bytes && row->second.begin == file.begin;
        if (!begun.contains(file.key)) {
            file.end = known ? row->second.end : file.begin;
            file.state = known ? FileState::Finished : FileState::Cut;
            // It counts at once; how long it is comes later.
            if (!known || row->second.keep != file.keep)
                index.Put(file);
            if (!known)
                unknown.push_back(file);
        }
        if (row != rows.end())
            rows.erase(row);
    }
    for (const auto& [key, row] : rows) {
        if (!begun.contains(key))
            index.Remove(key);
    }
    change.End();
    m_unknown.insert(m_unknown.end(), unknown.begin(), unknown.end());
}

void Adoption::ExamineSome(Index& index) {
    std::vector<std::pair<RecordedFile, bool>> examined; // true: it is to be seen
    for (std::size_t i = 0; i < kExaminedAtOnce && i < m_unknown.size(); ++i) {
        const RecordedFile& file = m_unknown[i];
        // Retention may have been quicker.
        if (!index.Find(file.key))
            continue;
        const auto whole = Examine(file);
        examined.emplace_back(whole.value_or(file), whole.has_value());
    }
    if (!examined.empty()) {
        Index::Change change(index);
        for (auto& [file, holds] : examined) {
            if (!holds)
                index.Remove(file.key);
            else if (const auto row = index.Find(file.key)) {
                file.keep = row->keep;
                index.Put(file);
            }
        }
        change.End();
    }
    m_unknown.erase(m_unknown.begin(), m_unknown.begin() + static_cast<std::ptrdiff_t>(
                                                               std::min(kExaminedAtOnce, m_unknown.size())));
}

// What is in the file, which is made whole where a crash has cut it. Nothing when there is nothing in it, and
// then it is gone.
std::optional<RecordedFile> Adoption::Examine(RecordedFile file) const {
    const std::string path = m_folder.PathOf(file);
    try {
        if (const auto length = MatroskaReader(path).Length()) {
            file.end = file.begin + *length;
            file.state = FileState::Finished;
            return file;
        }
        if (const auto finished = FinishCutFile(m_disk, path, file.begin)) {
            file.end = file.begin + finished->length;
            file.bytes = finished->bytes;
            file.state = FileState::Finished;
            return file;
        }
    } catch (const RecordingError& error) {
        if (error.error == ENOENT)
            return std::nullopt;
        if (error.error != 0 || file.bytes > kMostWithoutPicture) {
            // It keeps its place until its time has come; the next start tries again.
            Console::Get().Log("recording", error.what());
            return file;
        }
    }
    // Killed before its first picture was written.
    if (file.bytes > kMostWithoutPicture)
        return file;
    try {
        m_folder.Remove(file);
    } catch (const RecordingError&) {
        return file;
    }
    return std::nullopt;
}

} // namespace host
