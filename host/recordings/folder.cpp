#include "host/recordings/folder.h"

#include <algorithm>
#include <cerrno>
#include <filesystem>
#include <set>
#include <system_error>

#include <fcntl.h>
#include <nlohmann/json.hpp>
#include <sys/file.h>
#include <sys/stat.h>
#include <unistd.h>

#include "host/recordings/matroska_reader.h"
#include "platform/files.h"
#include "platform/messages.h"

namespace host {
namespace {

namespace fs = std::filesystem;

// The name of a camera, and when it was removed.
constexpr const char* kCameraFile = "camera.json";

[[noreturn]] void ThrowFolder(const std::string& what) {
    const int error = errno;
    throw RecordingError(what + ": " + std::generic_category().message(error), error);
}

std::vector<std::string> EntriesOf(const std::string& folder) {
    std::vector<std::string> names;
    std::error_code error;
    for (auto entry = fs::directory_iterator(folder, error); !error && entry != fs::directory_iterator();
         entry.increment(error))
        names.push_back(entry->path().filename().string());
    if (error && error != std::errc::no_such_file_or_directory && error != std::errc::not_a_directory)
        throw RecordingError("cannot look through " + folder + ": " + error.message(), error.value());
    std::ranges::sort(names);
    return names;
}

} // namespace

void RecordingsFolder::Open() {
    if (FAILED(platform::CreateFolder(m_path)))
        throw RecordingError("cannot make the folder " + m_path + ": " + platform::DescribeLastError(),
                             EACCES);
    const std::string lock = m_path + "/lock";
    platform::Descriptor file(::open(lock.c_str(), O_RDWR | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600));
    if (!file)
        ThrowFolder("cannot write into " + m_path);
    if (::flock(file.Get(), LOCK_EX | LOCK_NB) != 0)
        throw RecordingError("another host records into " + m_path, EWOULDBLOCK);
    m_lock = std::move(file);
}

RecordingsFolder::Content RecordingsFolder::Look() const {
    Content content;
    for (const std::string& name : EntriesOf(m_path)) {
        const auto id = ParseCameraId(name);
        if (!id)
            continue;
        auto& files = content.files[*id] = ReadFiles(*id);
        content.cameras.push_back(ReadCamera(*id, files));
    }
    std::ranges::sort(content.cameras, {}, &RecordedCamera::id);
    return content;
}

std::vector<RecordedFile> RecordingsFolder::ReadFiles(std::int64_t id) const {
    std::vector<RecordedFile> files;
    const std::string camera = m_path + '/' + std::to_string(id);
    for (const std::string& day : EntriesOf(camera)) {
        if (day == kCameraFile)
            continue;
        const std::string folder = camera + '/' + day;
        const auto names = EntriesOf(folder);
        for (const std::string& name : names) {
            const auto parsed = ParseFileName(name);
            if (!parsed || day != DayText(parsed->begin)) {
                // What was not finished when the host was killed is made anew.
                if (name.ends_with(".mkv.new"))
                    (void)m_disk.Remove(folder + '/' + name);
                continue;
            }
            RecordedFile file{.key = {id, parsed->number}, .begin = parsed->begin, .end = parsed->begin};
            struct stat info {};
            if (::lstat(PathOf(file).c_str(), &info) != 0 || !S_ISREG(info.st_mode))
                continue;
            file.bytes = static_cast<std::uint64_t>(info.st_size);
            file.keep = std::ranges::binary_search(names, name + std::string(kKeepSuffix));
            files.push_back(file);
        }
    }
    std::ranges::sort(files, {}, &RecordedFile::key);
    return files;
}

RecordedCamera RecordingsFolder::ReadCamera(std::int64_t id, const std::vector<RecordedFile>& files) const {
    RecordedCamera camera{.id = id};
    const auto text = platform::ReadWholeFile(m_path + '/' + std::to_string(id) + '/' + kCameraFile, 65536);
    const auto json = nlohmann::ordered_json::parse(text.value_or(""), nullptr, false);
    if (json.is_object() && json.contains("name") && json["name"].is_string()) {
        camera.name = json["name"];
        if (json.contains("removed") && json["removed"].is_number_integer())
            camera.removed = json["removed"];
        return camera;
    }
    // The title of its files has the name as well; the newest one may be without.
    for (auto file = files.rbegin(); file != files.rend() && camera.name.empty(); ++file) {
        try {
            camera.name = MatroskaReader(PathOf(*file)).Title();
        } catch (const RecordingError&) {
            continue;
        }
    }
    return camera;
}

std::string RecordingsFolder::PathOf(const RecordedFile& file) const {
    return m_path + '/' + RelativePathOf(file);
}

void RecordingsFolder::MakePlaceFor(const RecordedFile& file) const {
    const std::string folder = fs::path(PathOf(file)).parent_path().string();
    if (::mkdir(folder.c_str(), 0700) == 0 || errno == EEXIST)
        return;
    if (FAILED(platform::CreateFolder(folder)))
        ThrowFolder("cannot make the folder " + folder);
}

void RecordingsFolder::Write(const RecordedCamera& camera) const {
    const std::string folder = m_path + '/' + std::to_string(camera.id);
    auto json = nlohmann::ordered_json::object();
    json["name"] = camera.name;
    if (camera.removed != 0)
        json["removed"] = camera.removed;
    const std::string text =
        json.dump(-1, ' ', false, nlohmann::ordered_json::error_handler_t::replace) + '\n';
    if (FAILED(platform::CreateFolder(folder)) ||
        FAILED(platform::ReplaceFile(folder + '/' + kCameraFile, text, 0600)))
        throw RecordingError("cannot write into " + folder + ": " + platform::DescribeLastError(), EIO);
}

void RecordingsFolder::Remove(const RecordedFile& file) const {
    const std::string path = PathOf(file);
    if (!m_disk.Remove(path))
        ThrowFolder("cannot remove " + path);
    (void)m_disk.Remove(path + std::string(kKeepSuffix));
    (void)::rmdir(fs::path(path).parent_path().c_str()); // fails while there are others
}

void RecordingsFolder::Remove(const RecordedCamera& camera) const {
    const std::string folder = m_path + '/' + std::to_string(camera.id);
    (void)m_disk.Remove(folder + '/' + kCameraFile);
    (void)::rmdir(folder.c_str());
}

bool RecordingsFolder::IsKept(const RecordedFile& file) const {
    return ::access((PathOf(file) + std::string(kKeepSuffix)).c_str(), F_OK) == 0;
}

void RecordingsFolder::Keep(const RecordedFile& file, bool keep) const {
    const std::string path = PathOf(file) + std::string(kKeepSuffix);
    if (!keep) {
        if (!m_disk.Remove(path))
            ThrowFolder("cannot remove " + path);
        return;
    }
    if (!platform::Descriptor(::open(path.c_str(), O_WRONLY | O_CREAT | O_NOFOLLOW | O_CLOEXEC, 0600)))
        ThrowFolder("cannot make " + path);
}

} // namespace host
