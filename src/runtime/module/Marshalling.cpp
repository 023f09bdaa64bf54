#include "runtime/module/Marshalling.h"

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
