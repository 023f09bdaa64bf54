#include "kit/content/content_server.h"

#include <cstring>
#include <mutex>
#include <new>
#include <typeinfo>
#include <utility>

#include "image/FrameBlock.h"
#include "kit/statetree/process_state_tree.h"
#include "platform/text.h"

namespace kit {
namespace {

using platform::Bstr;
using platform::ComObject;

constexpr std::uint32_t kCompressionMjpg = 0x47504A4D; // the bytes "MJPG"

std::string_view BytesOf(std::span<const std::uint8_t> bytes) {
    return {reinterpret_cast<const char*>(bytes.data()), bytes.size()};
}

// Gives of a picture that came as JPEG the header alone, of a form that nobody takes as it is, so that the
// picture is fetched as the JPEG that it is.
std::string JpegHeader(const PlaneLayout& layout) {
    const BITMAPINFOHEADER header = MakeFrameHeader(layout.width, layout.height, 1, 24, kCompressionMjpg, 0);
    return {reinterpret_cast<const char*>(&header), sizeof header};
}

} // namespace

HRESULT ContentServer::OpenContent(BSTR bstrKey, std::int32_t nAuthSize, const std::uint8_t* pAuth,
                                   IUnknown** ppContent) {
    if (ppContent == nullptr)
        return E_POINTER;
    *ppContent = nullptr;
    if (nAuthSize < 0 || (nAuthSize > 0 && pAuth == nullptr))
        return E_INVALIDARG;
    if (!Knows(BytesOf({pAuth, static_cast<std::size_t>(nAuthSize)})))
        return E_ACCESSDENIED;
    try {
        SourcePtr source = m_access.open(platform::ToUtf8(platform::ViewOf(bstrKey)));
        if (!source)
            return E_ELEMENT_NOT_FOUND;
        // The new object's end takes its place back, also when it is one too many.
        const bool tooMany = ++*m_viewers > kMostViewers;
        const auto content = ComObject<SourceContent>::Create(
            ContentServerPtr(static_cast<ComObject<ContentServer>*>(this)), std::move(source), m_viewers);
        if (!content)
            --*m_viewers;
        if (!content || tooMany)
            return E_OUTOFMEMORY;
        return content->QueryInterface(IUnknown::iid, reinterpret_cast<void**>(ppContent));
    } catch (const std::exception&) {
        return E_OUTOFMEMORY; // nothing else fails there
    }
}

bool ContentServer::Knows(std::string_view token) const {
    const std::shared_lock guard(m_mutex);
    return m_access.knows && m_access.knows(token);
}

void ContentServer::Forget() {
    const std::unique_lock guard(m_mutex);
    m_access.knows = nullptr;
}

HRESULT SourceContent::GetContent(BSTR path, BSTR* body, BSTR* head) {
    if (body == nullptr || head == nullptr)
        return E_POINTER;
    try {
        const auto request = CurrentRequest();
        if (!request || !m_server->Knows(BytesOf(*request)))
            return E_ACCESSDENIED;
        const std::u16string_view wanted = platform::ViewOf(path);
        if (wanted == kContentOriginal) {
            const PicturePtr picture = m_source->Now();
            if (!picture)
                return E_ELEMENT_NOT_FOUND;
            // Kept until it is fetched: a viewer that sleeps for ten seconds must not keep every picture that
            // others have long forgotten.
            m_last = m_source->IsJpeg() ? picture : nullptr;
            *body = m_last ? Bstr::FromBytes(JpegHeader(picture->Layout())).Detach()
                           : Bstr::FromBytes(BytesOf(picture->Block())).Detach();
            return S_OK;
        }
        if (wanted != kContentJpeg)
            return E_INVALIDARG;
        // The picture whose size was told: the source may show another one by now.
        const PicturePtr picture = m_last ? std::exchange(m_last, nullptr) : m_source->Now();
        if (!picture)
            return E_ELEMENT_NOT_FOUND;
        const std::string& jpeg = picture->Jpeg();
        if (jpeg.empty())
            return E_FAIL;
        *body = Bstr::FromBytes(jpeg).Detach();
        return S_OK;
    } catch (const std::exception&) {
        return E_OUTOFMEMORY;
    }
}

} // namespace kit
