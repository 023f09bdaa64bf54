// The component in this process: finding and loading it, creating it, its cameras, and letting it go.
#pragma once

#include <string>

#include "host/component/class_factory.h"
#include "host/component/web_handler_host.h"
#include "host/feed/feed_table.h"
#include "interfaces/IConfiguration.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/IVideoSource.h"
#include "platform/com.h"

namespace host {

// The module that the registry names for the class of the category kVideoSourceCategory, loaded as long as
// this is there. Where none is registered, the one that came with this program is, first. Once it is loaded,
// its languages can be told. Throws StartError.
class ComponentModule {
public:
    ComponentModule();
    ComponentModule(const ComponentModule&) = delete;
    ComponentModule& operator=(const ComponentModule&) = delete;
    ~ComponentModule();

    [[nodiscard]] const GUID& Class() const noexcept { return m_class; }

private:
    GUID m_class{};
    platform::ComPtr<IClassFactory> m_factory;
};

// Enter a module's classes into the registry of the data folder, and take them out. Throw StartError.
void RegisterComponent(const std::string& path);
void UnregisterComponent(const std::string& path);

class Component {
public:
    // Creates the server object, which registers itself with `handlerHost`, and subscribes the feeds to it.
    // Throws StartError.
    Component(const GUID& classId, WebHandlerHostPtr handlerHost, FeedTablePtr feeds);
    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;
    // Ends every upload: no picture reaches a feed afterwards.
    ~Component();

    // The settings; null when the component has none.
    [[nodiscard]] platform::ComPtr<IConfiguration> Configuration() const {
        return m_server.Query<IConfiguration>();
    }

private:
    void Create(const GUID& classId);

    WebHandlerHostPtr m_handlerHost;
    FeedTablePtr m_feeds;
    ClassRegistrations m_classes;
    platform::ComPtr<IUploadServer> m_server;
    platform::ComPtr<IVideoSource> m_source;
};

} // namespace host
