// The name of an object, for people.
#pragma once

#include "platform/com.h"
#include "platform/text.h"

struct IInfo : IUnknown {
    static constexpr GUID iid{0x87180A7D, 0x4B44, 0x4E7D, {0xB2, 0x56, 0x2D, 0x91, 0xE6, 0x34, 0x2B, 0x3B}};

    // A new text, the caller's to free, or null when the object has no name. E_POINTER for null.
    virtual HRESULT GetName(BSTR* szName) = 0;

protected:
    ~IInfo() = default;
};
