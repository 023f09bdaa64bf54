// The door of the library: what a client that has loaded it finds by name. docs/module.md has the statuses.

#include <cstdint>

#include "Common/Utils/LocalizeEx.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/Registration.h"
#include "runtime/module/Module.h"
#include "runtime/trace/StatusException.h"
#include "server/SingletonFactory.h"
#include "server/UploadServer.h"

#define MORROWSTREAM_EXPORT extern "C" __attribute__((visibility("default")))

namespace {

constexpr std::uint16_t kUploadServerScript = 102;

constexpr GUID kUploadServerCategories[] = {kVideoSourceCategory};

HRESULT UpdateUploadServer(CMorrowstreamModule& oModule, bool bRegister) {
    return oModule.UpdateRegistryFromResource(kUploadServerScript, bRegister);
}

HRESULT CreateUploadServerFactory(platform::ComPtr<IClassFactory>& spFactory) {
    spFactory = CComObjectSingletonFactory<CUploadServer>::Create();
    return spFactory ? S_OK : E_OUTOFMEMORY;
}

// The class has no term function, since its object ends with the last reference.
constinit SClassEntry g_aClasses[] = {
    {kUploadServerClass, UpdateUploadServer, CreateUploadServerFactory, kUploadServerCategories, nullptr}};

CMorrowstreamModule& Module() {
    static CMorrowstreamModule oModule(g_aClasses);
    return oModule;
}

// Runs before anything else of the library does. False when the module could not be initialised: the system's
// loader takes no answer, so it stays loaded and refuses everything with E_UNEXPECTED.
constexpr std::uint32_t kProcessAttach = 1;
bool ModuleEntryPoint(platform::ModuleHandle hModule, std::uint32_t nReason) {
    if (nReason != kProcessAttach)
        return true;
    const HRESULT hr = Module().Init(hModule);
    // A component whose texts stay in English is better than none.
    (void)StatusOf([&] { return CLocalizeEx::LocalizeModule(hModule) ? S_OK : S_FALSE; });
    return SUCCEEDED(hr);
}

// The system's loader calls this when the library is mapped, one library at a time. It has no other reasons
// to call: it says nothing of threads, and of the unload by destroying the module.
[[gnu::constructor]] void OnLoad() {
    (void)ModuleEntryPoint(ThisModule(), kProcessAttach);
}

// The code that would carry calls of IUploadServer from one apartment to another. There is one apartment, and
// a process has all of its objects in it (platform/com.h), so no call is carried and nobody asks for a proxy.
// The module still asks here first wherever such code would have the first word, and the answer is always
// that the question is somebody else's: this code has no class, keeps nothing loaded and owns no key of the
// registry.
HRESULT ProxyGetClassObject(const GUID& /*oClass*/, const GUID& /*oInterface*/, void** ppObject) noexcept {
    if (ppObject == nullptr)
        return E_POINTER;
    *ppObject = nullptr;
    return CLASS_E_CLASSNOTAVAILABLE;
}

HRESULT ProxyCanUnloadNow() noexcept {
    return S_OK;
}

HRESULT NdrDllRegisterProxy() noexcept {
    return S_OK;
}

HRESULT NdrDllUnregisterProxy() noexcept {
    return S_OK;
}

} // namespace

// S_FALSE while an object, a factory or a lock of a client is out, else S_OK.
MORROWSTREAM_EXPORT HRESULT DllCanUnloadNow() {
    const HRESULT hr = ProxyCanUnloadNow();
    if (hr != S_OK)
        return hr;
    return Module().GetLockCount() != 0 ? S_FALSE : S_OK;
}

MORROWSTREAM_EXPORT HRESULT DllGetClassObject(const GUID& oClass, const GUID& oInterface, void** ppObject) {
    if (ProxyGetClassObject(oClass, oInterface, ppObject) == S_OK)
        return S_OK;
    return ModuleGetClassObject(&Module(), oClass, oInterface, ppObject);
}

MORROWSTREAM_EXPORT HRESULT DllRegisterServer() {
    const HRESULT hr = Module().RegisterServer();
    return FAILED(hr) ? hr : NdrDllRegisterProxy();
}

MORROWSTREAM_EXPORT HRESULT DllUnregisterServer() {
    HRESULT hr = Module().UnregisterServer();
    // Registers the proxy first, so that there is one to take out whatever was there before.
    if (SUCCEEDED(hr))
        hr = NdrDllRegisterProxy();
    return FAILED(hr) ? hr : NdrDllUnregisterProxy();
}
