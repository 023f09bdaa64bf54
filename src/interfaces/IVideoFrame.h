// One decoded picture.
#pragma once

#include <cstdint>

#include "platform/com.h"

struct IVideoFrame : IUnknown {
    static constexpr GUID iid{0x4AC63C64, 0xE7AA, 0x48C3, {0x85, 0xDE, 0xF6, 0x7A, 0x73, 0x8A, 0x4F, 0xE0}};

    // A private copy of the frame block (a 40-byte bitmap header, then the planes, grey or YV12) and its size
    // in bytes. The caller frees the copy with CoTaskMemFree. E_UNEXPECTED when the picture could not be
    // decoded, whatever the arguments; E_POINTER; E_OUTOFMEMORY. Any thread, any number of times.
    virtual HRESULT GetFrameContent(std::uint8_t** pBitmap, std::uint32_t* pdwSize) = 0;
    // E_NOTIMPL.
    virtual HRESULT Reserved() = 0;
    // 0 for every frame of this system.
    virtual HRESULT GetFrameTag(std::uint32_t* pnTag) = 0;

protected:
    ~IVideoFrame() = default;
};
