// The global interface table: interfaces of a process by number, for whoever cannot hold a pointer.
//
// There is one, of the class kInterfaceTableClass, which every process has (CoCreateInstance with an
// in-process context). Any thread may call any operation.
#pragma once

#include "platform/com.h"

struct IGlobalInterfaceTable : IUnknown {
    static constexpr GUID iid{0x00000146, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

    // Keeps a reference under a number that is never 0. E_POINTER; E_NOINTERFACE for an object without that
    // interface.
    virtual HRESULT RegisterInterfaceInGlobal(IUnknown* object, const GUID& interfaceId,
                                              std::uint32_t* cookie) = 0;
    // Lets go of it. E_INVALIDARG for a number that is none.
    virtual HRESULT RevokeInterfaceFromGlobal(std::uint32_t cookie) = 0;
    // An interface of the object, with a new reference. E_INVALIDARG, E_POINTER, E_NOINTERFACE.
    virtual HRESULT GetInterfaceFromGlobal(std::uint32_t cookie, const GUID& interfaceId, void** object) = 0;

protected:
    ~IGlobalInterfaceTable() = default;
};

namespace platform {

inline constexpr GUID kInterfaceTableClass{0x00000323, 0x0000, 0x0000, {0xC0, 0, 0, 0, 0, 0, 0, 0x46}};

// The table, for CoCreateInstance.
HRESULT GetInterfaceTable(IUnknown* outer, const GUID& interfaceId, void** object);

} // namespace platform
