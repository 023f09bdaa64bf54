// What came from the phone for one picture, beside the decoded block: the file, and when it was there.
#pragma once

#include <cstdint>

#include "platform/com.h"

// Every frame that a camera's sink gets answers for it besides IVideoFrame (QueryInterface). It lends: what
// its pointers lead to is the frame's, does not change, and stays until the last reference to the frame goes.
// Any thread may call any operation, any number of times. E_POINTER for a null argument, with nothing
// written.
struct IReceivedPicture : IUnknown {
    static constexpr GUID iid{0x6E0A7C52, 0x3B1D, 0x4F86, {0x9A, 0x41, 0xD7, 0x58, 0x20, 0xC3, 0x6F, 0x1B}};

    // The JPEG file as the phone sent it, its header and its body joined, whether or not it can be decoded.
    // It holds whatever a stranger put into it, the place where it was taken perhaps: it is for the process
    // that received it. StripJpeg (image/ImageCodec.h) makes of it what others may have. S_OK.
    virtual HRESULT GetFile(const std::uint8_t** pBytes, std::uint32_t* pdwSize) = 0;
    // When the last byte had been read: nanoseconds of the monotonic clock (CLOCK_MONOTONIC), which is for
    // differences, and since 1970, which may jump when the machine's clock is set. S_OK.
    virtual HRESULT GetArrival(std::int64_t* pnMonotonic, std::int64_t* pnUtc) = 0;
    // The frame block itself, of which IVideoFrame::GetFrameContent gives copies. E_UNEXPECTED when the
    // picture could not be decoded, whatever the arguments; S_OK.
    virtual HRESULT GetFrameBlock(const std::uint8_t** pBitmap, std::uint32_t* pdwSize) = 0;

protected:
    ~IReceivedPicture() = default;
};
