// One decoded picture on its way from a camera to its sink.
#pragma once

#include <cstdint>

#include "image/FrameBlock.h"
#include "interfaces/IVideoFrame.h"
#include "platform/com.h"

// Owns its frame block, so it may outlive the camera that made it. Nothing changes after Init: any thread may
// read it.
class CVideoFrame : public platform::Implements<IVideoFrame> {
public:
    static platform::ComPtr<CVideoFrame> Create();

    // Decodes one JPEG file, which stays the caller's. S_OK in every case: a picture that cannot be decoded,
    // that memory is short for, or that is above the limit of platform/picture_limit.h, is a frame without
    // content.
    HRESULT Init(const std::uint8_t* pJpeg, std::uint32_t nJpegSize) noexcept;

    HRESULT GetFrameContent(std::uint8_t** pBitmap, std::uint32_t* pdwSize) override;
    HRESULT Reserved() override { return E_NOTIMPL; }
    HRESULT GetFrameTag(std::uint32_t* pnTag) override;

protected:
    CVideoFrame() = default;
    ~CVideoFrame() = default;

private:
    FrameBlock m_pBuff;
    std::uint32_t m_nTag = 0; // nothing sets it
};
