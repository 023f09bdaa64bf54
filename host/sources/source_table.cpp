#include "host/sources/source_table.h"

#include <algorithm>

#include "host/sources/sources.h"

namespace host {
namespace {

namespace fs = std::filesystem;

constexpr std::string_view kClockKey = "clock";
constexpr std::string_view kFilePrefix = "file/";
constexpr std::size_t kMostFolders = 1000;

// A name of one folder, not a way to another: no separator, nothing hidden, none of "." and "..", and nothing
// that upsets a terminal.
bool IsFolderName(std::string_view name) {
    const auto bad = [](char c) {
        return c == '/' || c == '\\' || static_cast<unsigned char>(c) < 32 || c == 127;
    };
    return !name.empty() && name.size() <= 255 && name.front() != '.' && std::ranges::none_of(name, bad);
}

} // namespace

kit::PicturePtr CameraSource::Now() {
    const FeedPtr feed = m_feeds->Find(m_name);
    if (!feed)
        return nullptr;
    kit::PicturePtr newest = feed->Newest();
    if (newest && Clock::now() - newest->Arrival() < m_staleAfter)
        return newest;
    return Placeholder(newest);
}

kit::PicturePtr CameraSource::Placeholder(const kit::PicturePtr& newest) {
    const kit::PlaneLayout size = newest ? newest->Layout() : kit::PlaneLayout{320, 240};
    const std::lock_guard guard(m_mutex);
    if (!m_placeholder || m_placeholder->Layout().width != size.width ||
        m_placeholder->Layout().height != size.height)
        m_placeholder = kit::MakePlaceholder(size.width, size.height);
    return m_placeholder;
}

kit::SourcePtr SourceTable::Open(std::string_view key, const Rights& rights) {
    const std::lock_guard guard(m_mutex);
    const auto found = m_open.find(key);
    // A camera's name may have meant something else before the camera came.
    const bool camera = static_cast<bool>(FindSeen(*m_feeds, std::string(key), rights));
    if (found != m_open.end()) {
        if (kit::SourcePtr source = found->second.lock();
            source && camera == (dynamic_cast<CameraSource*>(source.get()) != nullptr))
            return source;
    }
    kit::SourcePtr source = Make(std::string(key), camera);
    std::erase_if(m_open, [](const auto& item) { return item.second.expired(); });
    if (source)
        m_open.insert_or_assign(std::string(key), source);
    return source;
}

kit::SourcePtr SourceTable::Make(const std::string& key, bool camera) const {
    if (camera)
        return std::make_shared<CameraSource>(m_feeds, key, m_staleAfter);
    if (key == kClockKey)
        return std::make_shared<ClockSource>();
    if (!key.starts_with(kFilePrefix))
        return nullptr;
    const fs::path folder = FolderOf(std::string_view(key).substr(kFilePrefix.size()));
    return folder.empty() ? nullptr : FileSource::Open(folder);
}

fs::path SourceTable::FolderOf(std::string_view name) const {
    if (m_folder.empty() || !IsFolderName(name))
        return {};
    const fs::path folder = m_folder / name;
    std::error_code error;
    // A link is not followed: it could lead anywhere.
    return fs::is_directory(fs::symlink_status(folder, error)) ? folder : fs::path();
}

std::vector<std::string> SourceTable::Keys(const Rights& rights) const {
    std::vector<std::string> keys;
    for (const FeedPtr& feed : SeenFeeds(*m_feeds, rights))
        keys.push_back(feed->Name());
    for (std::string& key : OwnKeys()) {
        if (!FindSeen(*m_feeds, key, rights))
            keys.push_back(std::move(key));
    }
    return keys;
}

std::vector<std::string> SourceTable::OwnKeys() const {
    std::vector<std::string> keys{std::string(kClockKey)};
    std::error_code error;
    for (fs::directory_iterator entry(m_folder, error), end; !m_folder.empty() && !error && entry != end;
         entry.increment(error)) {
        const std::string name = entry->path().filename().string();
        if (keys.size() < kMostFolders && !FolderOf(name).empty())
            keys.push_back(std::string(kFilePrefix) + name);
    }
    std::sort(keys.begin() + 1, keys.end());
    return keys;
}

} // namespace host
