#include "camera/VideoFrame.h"

#include <cstring>

#include "image/ImageCodec.h"
#include "platform/picture_limit.h"
#include "runtime/trace/Trace.h"

platform::ComPtr<CVideoFrame> CVideoFrame::Create() {
    return platform::ComObject<CVideoFrame>::Create();
}

HRESULT CVideoFrame::Init(const std::uint8_t* pJpeg, std::uint32_t nJpegSize) noexcept {
    // A few bytes of header can ask for the work and the memory of many megapixels.
    const auto nSize = static_cast<std::int32_t>(nJpegSize);
    std::int32_t nWidth = 0;
    std::int32_t nHeight = 0;
    ImageKind eKind{};
    if (ProbeJpeg(pJpeg, nSize, nWidth, nHeight, eKind) == ImageOk &&
        platform::IsWithinPictureLimit(nWidth, nHeight))
        m_pBuff = DecodeToFrameBlock(pJpeg, nSize);
    return S_OK;
}

HRESULT CVideoFrame::GetFrameContent(std::uint8_t** pBitmap, std::uint32_t* pdwSize) {
    return StatusOf([&] {
        TRASSDO(m_pBuff, return E_UNEXPECTED);
        TRASSDO(pBitmap && pdwSize, return E_POINTER);
        const std::size_t nSize = m_pBuff.size();
        auto* pCopy = static_cast<std::uint8_t*>(CoTaskMemAlloc(nSize));
        if (pCopy == nullptr)
            return E_OUTOFMEMORY;
        std::memcpy(pCopy, m_pBuff.get(), nSize);
        *pBitmap = pCopy;
        *pdwSize = static_cast<std::uint32_t>(nSize);
        return S_OK;
    });
}

HRESULT CVideoFrame::GetFrameTag(std::uint32_t* pnTag) {
    if (pnTag == nullptr)
        return E_POINTER;
    *pnTag = m_nTag;
    return S_OK;
}
