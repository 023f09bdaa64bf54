#include "kit/component/component.h"

#include <filesystem>
#include <optional>
#include <stdexcept>

#include "interfaces/Registration.h"
#include "kit/packer/mobile_frame_packer.h"
#include "kit/settings/document.h"
#include "kit/statetree/process_state_tree.h"
#include "platform/files.h"
#include "platform/messages.h"
#include "platform/modules.h"
#include "platform/registry.h"
#include "platform/threads.h"

namespace kit {
namespace {

using platform::ComObject;
using platform::ComPtr;

// How long a receive loop may take to notice that its connection was closed.
constexpr std::uint32_t kLoopsEndWithin = 1000;

void Require(HRESULT hr, const std::string& what, const std::string& more = {}) {
    if (FAILED(hr))
        throw std::runtime_error(what + " failed: " + platform::DescribeStatus(hr) +
                                 (more.empty() ? "" : " ") + more);
}

std::optional<GUID> RegisteredClass() {
    const auto classes = platform::EnumClassesOfCategory(kVideoSourceCategory);
    return classes.empty() ? std::nullopt : std::optional(classes.front());
}

// The factory, which the module is loaded for.
HRESULT LoadFactory(const GUID& classId, ComPtr<IClassFactory>& factory) {
    return platform::CoGetClassObject(classId, platform::kContextAll, IClassFactory::iid,
                                      factory.ReceiveVoid());
}

// Registers or unregisters a module; either runs code of the module.
void CallModule(const std::string& what, HRESULT (*call)(const std::string&), const std::string& path,
                const std::string& dataFolder) {
    if (const std::string wrong = WrongModulePlace(path, dataFolder); !wrong.empty())
        throw std::runtime_error("the component " + path + wrong);
    const HRESULT hr = call(path);
    Require(hr, what + " " + path, platform::LastModuleError());
}

} // namespace

std::string SetDataFolder(const std::string& folder) {
    platform::SetCommonDataFolder(folder);
    return platform::SetRegistryFile(folder + "/registry");
}

// Builds are moved and removed while their data stays, so a path that leads nowhere is replaced by the module
// that came with this program, and so is one from a place that does not count. Only the lack of both is an
// error.
ComponentModule::ComponentModule(const std::string& dataFolder) {
    const auto registered = RegisteredClass();
    const std::string old = registered ? platform::ModulePathOf(*registered) : "";
    std::string wrong = old.empty() ? "" : WrongModulePlace(old, dataFolder);
    ComPtr<IClassFactory> factory;
    HRESULT hr = registered && wrong.empty() ? LoadFactory(*registered, factory) : REGDB_E_CLASSNOTREG;
    if (FAILED(hr)) {
        if (registered && wrong.empty())
            wrong = " cannot be loaded (" + platform::DescribeStatus(hr) + " " + platform::LastModuleError() +
                    ")";
        const std::string own = OwnModule();
        if (own.empty() || own == old)
            throw std::runtime_error(registered ? "the component " + old + wrong
                                                : "no component is registered");
        RegisterComponent(own, dataFolder);
        m_note = "registered " + own + (old.empty() ? "" : " in place of " + old + ", which" + wrong);
        const auto now = RegisteredClass();
        hr = now ? LoadFactory(*now, factory) : REGDB_E_CLASSNOTREG;
    }
    Require(hr, "loading the component", platform::LastModuleError());
    m_class = *RegisteredClass();
    m_factory = std::move(factory);
}

bool ComponentModule::Unload() noexcept {
    m_factory = nullptr;
    // All users of the module have ended; threads of the pool keep the code that they still run.
    (void)platform::CoFreeUnusedLibraries(std::chrono::milliseconds(0));
    return platform::LoadedModules() == 0;
}

void RegisterComponent(const std::string& path, const std::string& dataFolder) {
    CallModule("registering", platform::RegisterModule, path, dataFolder);
}

void UnregisterComponent(const std::string& path, const std::string& dataFolder) {
    CallModule("unregistering", platform::UnregisterModule, path, dataFolder);
}

Viewing::Viewing(ContentAccess access, std::shared_ptr<PackerCounters> counters)
    : m_server(ComObject<ContentServer>::Create(std::move(access))) {
    const auto tree = ComObject<ProcessStateTree>::Create(MakeStateNodes());
    m_classes.AddObject(kProcessStateTreeClass, ComPtr<IUnknown>(tree.Get()));
    m_classes.Add(kMobileFramePackerClass,
                  [counters = std::move(counters)](const GUID& interfaceId, void** object) {
                      const auto packer = ComObject<MobileFramePacker>::Create(counters);
                      return packer ? packer->QueryInterface(interfaceId, object) : E_OUTOFMEMORY;
                  });
    const auto node = FindStateNode(kWebServerNode, true);
    if (!m_server || !node || FAILED(node->SetValue(m_server.Get())))
        throw std::runtime_error("the web server could not be published");
}

void Viewing::End() noexcept {
    m_server->Forget();
    if (const auto node = FindStateNode(kWebServerNode, false))
        (void)node->SetValue(nullptr);
}

Component::Component(const GUID& classId, WebHandlerHostPtr handlerHost)
    : m_handlerHost(std::move(handlerHost)) {
    m_classes.AddObject(kWebHandlerHostClass,
                        ComPtr<IUnknown>(static_cast<IWebHandlerHost*>(m_handlerHost.Get())));
    try {
        Create(classId);
    } catch (...) {
        m_handlerHost->Forget();
        m_source = nullptr;
        m_server = nullptr;
        throw;
    }
}

void Component::Create(const GUID& classId) {
    const std::filesystem::path settings = SettingsFile(platform::KnownFolder(platform::kFolderCommonData));
    Require(platform::CreateFolder(settings.parent_path().string()),
            "making the folder " + settings.parent_path().string());
    Require(platform::CoCreateInstance(classId, nullptr, platform::kContextAll, IUploadServer::iid,
                                       m_server.ReceiveVoid()),
            "creating the component");
    m_source = m_server.Query<IVideoSource>();
    if (!m_source)
        throw std::runtime_error("the component is no video source");
}

Component::~Component() {
    m_handlerHost->Forget();
    m_source = nullptr;
    m_server = nullptr; // the last reference: the object closes the phones' sockets
    platform::WaitForWorkItems(kLoopsEndWithin);
}

} // namespace kit
