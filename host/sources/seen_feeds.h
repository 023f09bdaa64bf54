// The cameras that somebody sees.
#pragma once

#include <string>
#include <vector>

#include "host/feed/feed_table.h"
#include "host/users/rights.h"

namespace host {

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

} // namespace host
