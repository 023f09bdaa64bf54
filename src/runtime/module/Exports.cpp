#include "runtime/module/Exports.h"

#include "Common/Utils/LocalizeEx.h"
#include "Common/Utils/ModuleImage.h"
#include "interfaces/IUploadServer.h"
#include "interfaces/Registration.h"
#include "runtime/module/Marshalling.h"
#include "runtime/module/Module.h"
#include "runtime/trace/StatusException.h"
#include "server/SingletonFactory.h"
#include "server/UploadServer.h"

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

// The object of this class ends with its last reference, and what its process shares goes with the module.
constinit SClassEntry g_aClasses[] = {
    {kUploadServerClass, UpdateUploadServer, CreateUploadServerFactory, kUploadServerCategories, nullptr}};

CMorrowstreamModule& Module() {
    static CMorrowstreamModule oModule(g_aClasses);
    return oModule;
}

// The system's loader calls this when the library is mapped, one library at a time. It has no other reasons
// to call: it says nothing of threads, and of the unload by destroying the module.
[[gnu::constructor]] void OnLoad() {
    (void)ModuleEntryPoint(ThisModule(), kProcessAttach);
}

} // namespace

bool ModuleEntryPoint(platform::ModuleHandle hModule, std::uint32_t nReason) {
    if (nReason != kProcessAttach)
        return true;
    const HRESULT hr = Module().Init(hModule);
    // A component whose texts stay in English is better than none.
    (void)StatusOf([&] { return CLocalizeEx::LocalizeModule(hModule) ? S_OK : S_FALSE; });
    return SUCCEEDED(hr);
}

HRESULT DllCanUnloadNow() {
    const HRESULT hr = ProxyCanUnloadNow();
    if (hr != S_OK)
        return hr;
    return Module().GetLockCount() != 0 ? S_FALSE : S_OK;
}

HRESULT DllGetClassObject(const GUID& oClass, const GUID& oInterface, void** ppObject) {
    if (ProxyGetClassObject(oClass, oInterface, ppObject) == S_OK)
        return S_OK;
    return ModuleGetClassObject(&Module(), oClass, oInterface, ppObject);
}

HRESULT DllRegisterServer() {
    const HRESULT hr = Module().RegisterServer();
    return FAILED(hr) ? hr : NdrDllRegisterProxy();
}

HRESULT DllUnregisterServer() {
    HRESULT hr = Module().UnregisterServer();
    // Registered first, so that there is something to take out whatever was there before.
    if (SUCCEEDED(hr))
        hr = NdrDllRegisterProxy();
    return FAILED(hr) ? hr : NdrDllUnregisterProxy();
}
