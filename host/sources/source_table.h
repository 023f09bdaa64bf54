// Every source of the host, by its key.
//
//   key          source
//   a name       the camera of that name; it comes before a source of the host's own with the same key
//   clock        a drawn clock
//   file/NAME    the pictures of the folder NAME below the configured folder
#pragma once

#include <chrono>
#include <filesystem>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "host/feed/feed_table.h"
#include "host/users/rights.h"
#include "kit/content/content_server.h"
#include "kit/picture/picture.h"

namespace host {

// Thread-safe.
class SourceTable {
public:
    // `folder` need not exist; empty: there are no files to watch.
    SourceTable(FeedTablePtr feeds, std::filesystem::path folder, std::chrono::milliseconds staleAfter)
        : m_feeds(std::move(feeds)), m_folder(std::move(folder)), m_staleAfter(staleAfter) {}

    // Null for a key that names nothing. A camera that is not seen is none, here as well. Those who open the
    // same key at the same time get the same source.
    kit::SourcePtr Open(std::string_view key, const Rights& rights = Rights::OfAll());
    // All that somebody may open: cameras, in the order of their names, and then the host's own sources but
    // for those that a camera stands before.
    [[nodiscard]] std::vector<std::string> Keys(const Rights& rights) const;
    // The keys of the host's own sources.
    [[nodiscard]] std::vector<std::string> OwnKeys() const;

private:
    [[nodiscard]] kit::SourcePtr Make(const std::string& key, bool camera) const;
    [[nodiscard]] std::filesystem::path FolderOf(std::string_view name) const;

    const FeedTablePtr m_feeds;
    const std::filesystem::path m_folder;
    const std::chrono::milliseconds m_staleAfter;
    std::mutex m_mutex;
    std::map<std::string, std::weak_ptr<kit::Source>, std::less<>> m_open; // under m_mutex
};

// --- The cameras that somebody sees ---

// Null when there is no camera of that name, for them.
inline FeedPtr FindSeen(const FeedTable& feeds, const std::string& name, const Rights& rights) {
    return rights.Sees(name) ? feeds.Find(name) : nullptr;
}

// In the order of their names.
inline std::vector<FeedPtr> SeenFeeds(const FeedTable& feeds, const Rights& rights) {
    std::vector<FeedPtr> list = feeds.List();
    std::erase_if(list, [&](const FeedPtr& feed) { return !rights.Sees(feed->Name()); });
    return list;
}

// What viewing phones get of the host's sources: each one what its sign-in sees, for as long as it does.
//
// `rightsOf` tells of a credentials block what it sees now; nothing for one that is nobody's. It is called
// for as long as ContentAccess::knows is.
kit::ContentAccess PhoneContentOf(std::shared_ptr<SourceTable> sources,
                                  std::function<std::optional<Rights>(std::string_view token)> rightsOf);

} // namespace host
