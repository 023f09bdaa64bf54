// Finds and loads the component into this process, gives it what it needs of a host, and creates it.
//
// A host calls SetDataFolder, and SetLogTarget (kit/log/log_engine.h) where it wants lines. Then it makes, in
// this order, and takes down in the opposite one, a ComponentModule; where phones shall watch, a Viewing; a
// WebHandlerHost and a Component. There is one component in a process. All of that is for one thread at a
// time.
#pragma once

#include <memory>
#include <string>

#include "interfaces/IConfiguration.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/IVideoSource.h"
#include "kit/component/class_factory.h"
#include "kit/component/web_handler_host.h"
#include "kit/content/content_server.h"
#include "kit/export.h"
#include "kit/packer/frame_packer.h"
#include "platform/com.h"

namespace kit {

// Says below which folder the component keeps its settings and the process its registry, for both are the
// process's: the first call counts for good once there is a component. Makes nothing. The result is empty, or
// a line for a log that says what is wrong with the registry's file, which then counts as empty.
MORROW_KIT_API std::string SetDataFolder(const std::string& folder);
// The module that the registry names for the class of the category kVideoSourceCategory, loaded as long as
// this is there. Where none is registered, or from a place that does not count (WrongModulePlace), the one
// that came with this program is, first. Once it is loaded, its languages can be told. Throws
// std::runtime_error.
class MORROW_KIT_API ComponentModule {
public:
    explicit ComponentModule(const std::string& dataFolder);
    ComponentModule(const ComponentModule&) = delete;
    ComponentModule& operator=(const ComponentModule&) = delete;
    ~ComponentModule() { (void)Unload(); }
    // Lets the module go before the end, as the end does else. False when it stays loaded, since somebody
    // holds an object of it. Nothing may be created with the class afterwards.
    bool Unload() noexcept;

    [[nodiscard]] const GUID& Class() const noexcept { return m_class; }
    // Says which module was registered, when one was: a line for a log.
    [[nodiscard]] const std::string& Note() const noexcept { return m_note; }

private:
    GUID m_class{};
    std::string m_note;
    platform::ComPtr<IClassFactory> m_factory;
};

// Where a module may be loaded from: its code may do all that the process may, and what names it, the
// registry, stands in a folder that the process itself writes to.
//
// The module as it is built or installed with this library or program: beside it, or in the folder of
// libraries beside that; empty where there is none.
MORROW_KIT_API std::string OwnModule();
// Says what is wrong with the place of a module, as the rest of a line that begins with its path. Empty for
// the program's own one, for one that nobody but root and the owner of this program can have put where it is,
// outside of `dataFolder`, and for a path that leads nowhere.
MORROW_KIT_API std::string WrongModulePlace(const std::string& path, const std::string& dataFolder);

// Enter a module's classes into the registry of the data folder, and take them out. Throw
// std::runtime_error, also for a place that does not count.
MORROW_KIT_API void RegisterComponent(const std::string& path, const std::string& dataFolder);
MORROW_KIT_API void UnregisterComponent(const std::string& path, const std::string& dataFolder);

// Puts in place what viewing phones need of a host: the process state tree with the web server in it, and the
// packer's class.
class MORROW_KIT_API Viewing {
public:
    // Before the component comes. Throws std::runtime_error.
    Viewing(ContentAccess access, std::shared_ptr<PackerCounters> counters);
    Viewing(const Viewing&) = delete;
    Viewing& operator=(const Viewing&) = delete;
    // Ends every viewing: no picture reaches a phone afterwards, though its thread may sleep for a while yet.
    // To be called before the component goes; the classes stay until this object does.
    void End() noexcept;
    ~Viewing() { End(); }

    [[nodiscard]] std::uint32_t Viewers() const noexcept { return m_server->Viewers(); }

private:
    ClassRegistrations m_classes;
    const ContentServerPtr m_server;
};

class MORROW_KIT_API Component {
public:
    // Creates the server object, which registers itself with `handlerHost`, and the folder of its settings
    // where there is none. Throws std::runtime_error.
    Component(const GUID& classId, WebHandlerHostPtr handlerHost);
    Component(const Component&) = delete;
    Component& operator=(const Component&) = delete;
    // Ends every upload. Nobody may hold the source or the settings any more.
    ~Component();

    // The cameras.
    [[nodiscard]] const platform::ComPtr<IVideoSource>& Source() const noexcept { return m_source; }

    // The settings; null when the component has none.
    [[nodiscard]] platform::ComPtr<IConfiguration> Configuration() const {
        return m_server.Query<IConfiguration>();
    }

private:
    void Create(const GUID& classId);

    WebHandlerHostPtr m_handlerHost;
    ClassRegistrations m_classes;
    platform::ComPtr<IUploadServer> m_server;
    platform::ComPtr<IVideoSource> m_source;
};

} // namespace kit
