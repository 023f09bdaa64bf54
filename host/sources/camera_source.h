// A camera of the host as a source.
#pragma once

#include <chrono>
#include <mutex>
#include <string>

#include "host/content/source.h"
#include "host/feed/feed_table.h"

namespace host {

class CameraSource : public Source {
public:
    // A picture older than `staleAfter` is not shown any more.
    CameraSource(FeedTablePtr feeds, std::string name, std::chrono::milliseconds staleAfter)
        : m_feeds(std::move(feeds)), m_name(std::move(name)), m_staleAfter(staleAfter) {}

    // Null once the camera is removed.
    PicturePtr Now() override;

private:
    PicturePtr Placeholder(const PicturePtr& newest);

    const FeedTablePtr m_feeds;
    const std::string m_name;
    const std::chrono::milliseconds m_staleAfter;
    std::mutex m_mutex;
    PicturePtr m_placeholder; // under m_mutex; of the size of the last picture
};

} // namespace host
