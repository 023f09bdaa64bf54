#include "camera/VideoFrame.h"

#include <chrono>
#include <cstring>
#include <utility>

#include "image/ImageCodec.h"
#include "platform/picture_limit.h"
#include "runtime/trace/Trace.h"

platform::ComPtr<CVideoFrame> CVideoFrame::Create() {
    return platform::ComObject<CVideoFrame>::Create();
}

SArrival SArrival::Now() noexcept {
    using std::chrono::duration_cast, std::chrono::nanoseconds, std::chrono::steady_clock,
        std::chrono::system_clock;
    return {duration_cast<nanoseconds>(steady_clock::now().time_since_epoch()).count(),
            duration_cast<nanoseconds>(system_clock::now().time_since_epoch()).count()};
}

HRESULT CVideoFrame::Init(std::unique_ptr<std::uint8_t[]> pJpeg, std::uint32_t nJpegSize,
                          const SArrival& oArrival) noexcept {
    m_pJpeg = std::move(pJpeg);
    m_nJpegSize = nJpegSize;
    m_oArrival = oArrival;
    // A few bytes of header can ask for the work and the memory of many megapixels.
    m_pBuff = DecodeToFrameBlock(m_pJpeg.get(), static_cast<std::int32_t>(nJpegSize),
                                 &platform::IsWithinPictureLimit);
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

HRESULT CVideoFrame::GetFile(const std::uint8_t** pBytes, std::uint32_t* pdwSize) {
    if (pBytes == nullptr || pdwSize == nullptr)
        return E_POINTER;
    *pBytes = m_pJpeg.get();
    *pdwSize = m_nJpegSize;
    return S_OK;
}

HRESULT CVideoFrame::GetArrival(std::int64_t* pnMonotonic, std::int64_t* pnUtc) {
    if (pnMonotonic == nullptr || pnUtc == nullptr)
        return E_POINTER;
    *pnMonotonic = m_oArrival.nMonotonic;
    *pnUtc = m_oArrival.nUtc;
    return S_OK;
}

HRESULT CVideoFrame::GetFrameBlock(const std::uint8_t** pBitmap, std::uint32_t* pdwSize) {
    return StatusOf([&] {
        TRASSDO(m_pBuff, return E_UNEXPECTED);
        TRASSDO(pBitmap && pdwSize, return E_POINTER);
        *pBitmap = m_pBuff.get();
        *pdwSize = static_cast<std::uint32_t>(m_pBuff.size());
        return S_OK;
    });
}
