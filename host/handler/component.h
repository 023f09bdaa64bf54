// The component in this process: creating it, its cameras, and letting it go.
#pragma once

#include <string>
#include "host/handler/class_factory.h"
#include <vector>

#include "host/feed/feed_table.h"
#include "host/handler/web_handler_host.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/IVideoSource.h"

namespace host {

struct CameraEntry {
    std::string name; // UTF-8
    std::string type; // "320x240" or "160x120"
    std::string password;
    friend bool operator==(const CameraEntry&, const CameraEntry&) = default;
};

class Component {
public:
    // Creates the server object, which registers itself with `handlerHost`, and subscribes the feeds to it.
    // Throws StartError.
    Component(WebHandlerHostPtr handlerHost, FeedTablePtr feeds);
    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;
    // Ends every upload: no picture reaches a feed afterwards.
    ~Component();

    // Throws StartError for a camera that the component refuses.
    void AddCamera(const CameraEntry& camera);

private:
    ClassRegistrations m_classes;
    void Create();

    WebHandlerHostPtr m_handlerHost;
    FeedTablePtr m_feeds;
    platform::ComPtr<IUploadServer> m_server;
    platform::ComPtr<IVideoSource> m_source;
};

} // namespace host
