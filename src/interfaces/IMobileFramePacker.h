// The mobile frame packer: turns pictures into the byte stream that a viewing phone reads.
//
// Implemented by the host, as the class below. Each viewer has a packer of its own, created on the viewer's
// thread and used there alone, in the multithreaded apartment, on a stack of 256 KiB. The component knows
// nothing of the parameters' meaning or of the format of the bytes. The order of its calls:
//
//   Init, GetParams, then for each picture: AppendFrame, GetPackedData, and, where that gave data and the
//   phone has taken it, HasMoreFrames, until this is 0.
//
// The packer paces the stream: between two pictures the viewer sleeps 1000/fFrameRate whole milliseconds.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/com.h"
#include "platform/text.h"

struct BITMAPINFOHEADER;

struct SPackerParams {
    double fFrameRate;        // pictures a second; 0, less and what is no number mean no sleep at all
    std::uint8_t aPacker[40]; // the packer's own; not read by the component
};
static_assert(sizeof(SPackerParams) == 48 && offsetof(SPackerParams, aPacker) == 8);

struct IMobileFramePacker : IUnknown {
    static constexpr GUID iid{0xB4DADA40, 0xAD0A, 0x427A, {0x9F, 0x6F, 0x9C, 0x24, 0x7B, 0x94, 0xF7, 0xF7}};

    // `bstrParams` is what the phone's request says behind the source's key, not decoded, such as
    // "width=176&height=144&fps=5"; null when there is nothing. It stays the caller's. A failure ends the
    // connection before a byte was sent.
    virtual HRESULT Init(BSTR bstrParams) = 0;
    // One picture. Header and planes stay where they are until the GetPackedData behind this call has
    // returned and, where it gave data, the sending and HasMoreFrames are done; then they are gone. Rows lie
    // top row first whatever the sign of biHeight; w and h are the absolute values of biWidth and biHeight,
    // any or both of them may be 0, and biSizeImage need not be right. `pPlanes` holds what the form needs
    // (image/FrameBlock.h has the header):
    //   biCompression 0, biBitCount 8      grey, h rows of w
    //   biCompression 0, biBitCount 24     h rows of 3*w, blue first, no padding
    //   biCompression "YV12"               Y, h rows of w; Cr, then Cb, each w*h/4 bytes, rows of w/2
    // No other form comes. The planes need not be aligned. A failure ends the stream.
    virtual HRESULT AppendFrame(const BITMAPINFOHEADER* pHeader, const std::uint8_t* pPlanes) = 0;
    // Not a status: 0 when the stream is finished. Asked only after data was sent.
    virtual std::int32_t HasMoreFrames() = 0;
    // The bytes to send now, in memory of the task allocator that the caller frees, and their count, which
    // may be 0. E_PENDING: nothing yet, the packer wants more pictures. Any other failure ends the stream.
    virtual HRESULT GetPackedData(std::uint8_t** ppData, std::uint32_t* pnSize) = 0;
    // Asked once, behind Init. The record comes in zeroed. A failure ends the connection before a byte was
    // sent.
    virtual HRESULT GetParams(SPackerParams* pParams) = 0;

protected:
    ~IMobileFramePacker() = default;
};

inline constexpr GUID kMobileFramePackerClass{
    0xCA056DB6, 0x9D29, 0x46D0, {0xA0, 0xDD, 0x22, 0xD8, 0x92, 0x69, 0x65, 0x2C}};
