#include "kit/packer/mobile_frame_packer.h"

#include <algorithm>
#include <cstdlib>
#include <cstring>
#include <new>
#include <optional>

#include "image/FrameBlock.h"

namespace kit {
namespace {

constexpr std::int32_t kLongestSide = 65535;

// Nothing for a header of no form that is listed.
std::optional<SourcePlanes> PlanesOf(const BITMAPINFOHEADER& header, const std::uint8_t* samples) {
    SourcePlanes planes;
    if (header.biCompression == FrameCompressionYV12)
        planes.form = SourcePlanes::Form::Yv12;
    else if (header.biCompression == FrameCompressionGrey && header.biBitCount == 8)
        planes.form = SourcePlanes::Form::Grey;
    else if (header.biCompression == FrameCompressionGrey && header.biBitCount == 24)
        planes.form = SourcePlanes::Form::Bgr;
    else
        return std::nullopt;
    const auto inRange = [](std::int32_t side) { return side >= -kLongestSide && side <= kLongestSide; };
    if (!inRange(header.biWidth) || !inRange(header.biHeight))
        return std::nullopt;
    planes.width = std::abs(header.biWidth);
    planes.height = std::abs(header.biHeight);
    planes.samples = samples;
    return planes;
}

} // namespace

HRESULT MobileFramePacker::Init(BSTR bstrParams) {
    try {
        const auto parameters = ParsePackerParameters(platform::ToUtf8(platform::ViewOf(bstrParams)));
        if (!parameters)
            return E_INVALIDARG;
        m_packed = {};
        m_packer = std::make_unique<FramePacker>(*parameters, *m_counters);
        return S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

HRESULT MobileFramePacker::AppendFrame(const BITMAPINFOHEADER* pHeader, const std::uint8_t* pPlanes) {
    if (pHeader == nullptr || pPlanes == nullptr)
        return E_POINTER;
    if (!m_packer || !m_packer->HasMore())
        return E_UNEXPECTED;
    BITMAPINFOHEADER header; // it may stand at any address
    std::memcpy(&header, pHeader, sizeof header);
    const auto planes = PlanesOf(header, pPlanes);
    if (!planes)
        return E_INVALIDARG;
    try {
        m_packed = {}; // of the buffer that is written to now
        m_packed = m_packer->Pack(*planes);
        return m_packed.jpeg.empty() ? E_FAIL : S_OK;
    } catch (const std::bad_alloc&) {
        return E_OUTOFMEMORY;
    }
}

std::int32_t MobileFramePacker::HasMoreFrames() {
    return m_packer && m_packer->HasMore() ? 1 : 0;
}

HRESULT MobileFramePacker::GetPackedData(std::uint8_t** ppData, std::uint32_t* pnSize) {
    if (ppData == nullptr || pnSize == nullptr)
        return E_POINTER;
    if (m_packed.jpeg.empty())
        return E_PENDING;
    const std::size_t size = m_packed.header.size() + m_packed.jpeg.size();
    auto* const data = static_cast<std::uint8_t*>(CoTaskMemAlloc(size));
    if (data == nullptr)
        return E_OUTOFMEMORY;
    std::ranges::copy(m_packed.jpeg, std::ranges::copy(m_packed.header, data).out);
    *ppData = data;
    *pnSize = static_cast<std::uint32_t>(size);
    m_packed = {};
    m_packer->FreeStream();
    return S_OK;
}

HRESULT MobileFramePacker::GetParams(SPackerParams* pParams) {
    if (pParams == nullptr)
        return E_POINTER;
    if (!m_packer)
        return E_UNEXPECTED;
    *pParams = {};
    pParams->fFrameRate = m_packer->Parameters().fps;
    return S_OK;
}

} // namespace kit
