// One decoded picture on its way from a camera to its sink.
#pragma once

#include <cstdint>
#include <memory>

#include "image/FrameBlock.h"
#include "interfaces/IReceivedPicture.h"
#include "interfaces/IVideoFrame.h"
#include "platform/com.h"

// When the last byte of a picture had been read, as IReceivedPicture tells it.
struct SArrival {
    std::int64_t nMonotonic = 0;
    std::int64_t nUtc = 0;

    static SArrival Now() noexcept;
};

// Owns its frame block and the file that it was decoded from, so it may outlive the camera that made it.
// Nothing changes after Init: any thread may read it.
class CVideoFrame : public platform::Implements<IVideoFrame, IReceivedPicture> {
public:
    static platform::ComPtr<CVideoFrame> Create();

    HRESULT QueryInterface(const GUID& interfaceId, void** object) override = 0;
    std::uint32_t AddRef() override = 0;
    std::uint32_t Release() override = 0;

    // Decodes one JPEG file. S_OK in every case: a picture that cannot be decoded, that memory is short for,
    // or that is above the limit of platform/picture_limit.h, is a frame without content.
    //
    // The file becomes the frame's own. A frame was made to let its caller keep the file and free it behind
    // the call; this one lends it to whoever holds the frame (IReceivedPicture), so that a picture that goes
    // on to watchers is not encoded a second time.
    HRESULT Init(std::unique_ptr<std::uint8_t[]> pJpeg, std::uint32_t nJpegSize,
                 const SArrival& oArrival) noexcept;

    // IVideoFrame
    HRESULT GetFrameContent(std::uint8_t** pBitmap, std::uint32_t* pdwSize) override;
    HRESULT Reserved() override { return E_NOTIMPL; }
    HRESULT GetFrameTag(std::uint32_t* pnTag) override;

    // IReceivedPicture
    HRESULT GetFile(const std::uint8_t** pBytes, std::uint32_t* pdwSize) override;
    HRESULT GetArrival(std::int64_t* pnMonotonic, std::int64_t* pnUtc) override;
    HRESULT GetFrameBlock(const std::uint8_t** pBitmap, std::uint32_t* pdwSize) override;

protected:
    CVideoFrame() = default;
    ~CVideoFrame() = default;

private:
    FrameBlock m_pBuff;
    std::unique_ptr<std::uint8_t[]> m_pJpeg;
    std::uint32_t m_nJpegSize = 0;
    SArrival m_oArrival;
    std::uint32_t m_nTag = 0; // nothing sets it
};
