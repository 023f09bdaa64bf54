// The place of the code that would carry calls of IUploadServer from one apartment to another.
//
// There is one apartment, and a process has all of its objects in it (platform/com.h), so no call is carried
// and nobody asks for a proxy. The module still asks here first wherever such code would have the first word,
// and the answer is always that the question is somebody else's: this code has no class, keeps nothing loaded
// and owns no key of the registry.
#pragma once

#include "platform/com.h"

// CLASS_E_CLASSNOTAVAILABLE, and null in *ppObject.
HRESULT ProxyGetClassObject(const GUID& oClass, const GUID& oInterface, void** ppObject) noexcept;
HRESULT ProxyCanUnloadNow() noexcept; // S_OK: no proxies
// Both S_OK: nothing to write, nothing to remove.
HRESULT NdrDllRegisterProxy() noexcept;
HRESULT NdrDllUnregisterProxy() noexcept;
