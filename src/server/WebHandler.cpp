// Answers what the host's web server asks, except for content.

#include <string>
#include <string_view>

#include "platform/threads.h"
#include "runtime/trace/Trace.h"
#include "server/Request.h"
#include "server/UploadServer.h"

namespace {

// Paths that hold this text are streams; the host passes them with the text at their start.
constexpr std::u16string_view kStreamWord = u"mobile/video";

std::u16string_view PathOf(const char16_t* szPath) noexcept {
    return szPath == nullptr ? std::u16string_view{} : std::u16string_view(szPath);
}

} // namespace

HRESULT CUploadServer::IsStreamPath(const char16_t* szPath, std::int32_t* bStream) {
    if (bStream != nullptr)
        *bStream = PathOf(szPath).find(kStreamWord) != std::u16string_view::npos ? 1 : 0;
    return S_OK;
}

HRESULT CUploadServer::GetHandlerProcessId(std::uint32_t* nProcessId) {
    if (nProcessId != nullptr)
        *nProcessId = platform::CurrentProcessId();
    return S_OK;
}

HRESULT CUploadServer::Process(const char16_t* szPath, SOCKET hSocket, BSTR head) {
    return StatusOf([&] {
        CHTTPHeader oHTTPHeader;
        if (!oHTTPHeader.Parse(platform::ToNarrow(platform::ViewOf(head), platform::kCodePageThread)))
            return E_INVALIDARG;

        CRequestAuth oAuth;
        const HRESULT hr = m_spWebHandlerHost->GetRequestAuth(head, &oAuth);
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);

        // A path that is shorter than the stream word gives an empty name.
        const std::u16string_view path = PathOf(szPath);
        const auto tail =
            path.size() > kStreamWord.size() ? path.substr(kStreamWord.size()) : std::u16string_view{};
        const platform::Bstr name(TrimSlashes(tail));
        return OnConnection(name.Get(), hSocket, oHTTPHeader.IsPost() ? 1 : 0,
                            static_cast<std::int32_t>(oAuth.nSize), oAuth.pData);
    });
}
