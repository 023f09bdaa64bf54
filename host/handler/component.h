// The component in this process: creating it, its cameras, and letting it go.
#pragma once

#include "host/feed/feed_table.h"
#include "host/handler/class_factory.h"
#include "host/handler/web_handler_host.h"
#include "interfaces/IConfiguration.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/IVideoSource.h"

namespace host {

class Component {
public:
    // Creates the server object, which registers itself with `handlerHost`, and subscribes the feeds to it.
    // Throws StartError.
    Component(WebHandlerHostPtr handlerHost, FeedTablePtr feeds);
    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;
    // Ends every upload: no picture reaches a feed afterwards.
    ~Component();

    // The settings; null when the component has none.
    [[nodiscard]] platform::ComPtr<IConfiguration> Configuration() const {
        return m_server.Query<IConfiguration>();
    }

private:
    void Create();

    WebHandlerHostPtr m_handlerHost;
    FeedTablePtr m_feeds;
    ClassRegistrations m_classes;
    platform::ComPtr<IUploadServer> m_server;
    platform::ComPtr<IVideoSource> m_source;
};

} // namespace host
