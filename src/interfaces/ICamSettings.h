// Settings of a camera that can be asked for by number.
#pragma once

#include <cstdint>

#include "platform/com.h"

inline constexpr std::uint16_t VT_BOOL = 11;

// A value with its type, in the layout of the platform's variant.
struct SVariant {
    std::uint16_t vt = 0;
    std::uint16_t aReserved[3] = {};
    union {
        std::int16_t boolVal;
        std::uint64_t aBits[2] = {};
    };
};
static_assert(sizeof(SVariant) == 24);

// Setting 1: is a phone connected? VT_BOOL, 1 (not all ones) for yes, 0 for no.
inline constexpr std::int32_t kCamSettingConnected = 1;

struct ICamSettings : IUnknown {
    static constexpr GUID iid{0x59FF63CA, 0x64E9, 0x4689, {0xB6, 0xE5, 0x35, 0xEC, 0x21, 0x98, 0xC4, 0x47}};

    // E_NOTIMPL, the value untouched, for any other number than 1; E_POINTER.
    virtual HRESULT GetSetting(std::int32_t nSetting, SVariant* pValue) = 0;
    // E_NOTIMPL.
    virtual HRESULT Reserved(std::int32_t nSetting, const SVariant* pValue) = 0;

protected:
    ~ICamSettings() = default;
};
