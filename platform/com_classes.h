// Between the files that find classes: com.cpp knows those of this process, modules.cpp those of modules.
#pragma once

#include "platform/com.h"

namespace platform {

// Every class runs within the process: E_INVALIDARG for an empty mask, REGDB_E_CLASSNOTREG for one that
// leaves this out and so asks for a class that is not there.
constexpr HRESULT CheckContext(std::uint32_t contextMask) noexcept {
    if (contextMask == 0)
        return E_INVALIDARG;
    return (contextMask & kContextInProcess) == 0 ? REGDB_E_CLASSNOTREG : S_OK;
}

// The factory that this process has registered; null where it has none.
ComPtr<IClassFactory> RegisteredFactory(const GUID& classId) noexcept;
// REGDB_E_CLASSNOTREG where the registry names no module for the class.
HRESULT CreateFromModule(const GUID& classId, IUnknown* outer, const GUID& interfaceId, void** object);
// The process's global interface table (interface_table.h).
HRESULT GetInterfaceTable(IUnknown* outer, const GUID& interfaceId, void** object);

} // namespace platform
