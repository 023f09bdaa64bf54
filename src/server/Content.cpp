// Serves content by path: the midlets' archives, the settings, and the mobile page with its style sheet.

#include <algorithm>
#include <string>

#include "runtime/trace/Trace.h"
#include "server/Request.h"
#include "server/UploadServer.h"

namespace {

// What stands in front of a handler's tail: "mobile".
constexpr std::size_t kPathWordLength = 6;

} // namespace

// Both texts are made before the first one is replaced, so a lack of memory leaves both as they were.
void CUploadServer::StoreContent(platform::Bstr content, platform::Bstr contentHead, BSTR* body, BSTR* head) {
    SysFreeString(*body);
    SysFreeString(*head);
    *body = content.Detach();
    *head = contentHead.Detach();
}

HRESULT CUploadServer::GetSetContent(bool bSet, BSTR path, BSTR* body, BSTR* head) {
    return StatusOf([&] {
        TRASSDO(body&&head, return E_POINTER);
        platform::Bstr rest;
        const platform::Bstr segment = SplitPath(platform::Bstr::CopyOf(path), rest, false);
        if (segment.View() == u"Sendora.jar")
            return GetMidletArchive(kUploadMidlet, rest.View(), body, head);
        if (segment.View() == u"Viewlander.jar")
            return GetMidletArchive(kViewingMidlet, rest.View(), body, head);
        if (segment.View() == u"config")
            return GetSetConfig(bSet, body, head);
        if (segment.View() == u"mobile.xsl")
            return GetStyleSheet(body, head);
        return GetMobilePage(body, head);
    });
}

HRESULT CUploadServer::GetContent(BSTR path, BSTR* body, BSTR* head) {
    return GetSetContent(false, path, body, head);
}

HRESULT CUploadServer::SetContent(BSTR path, BSTR* body, BSTR* head) {
    return GetSetContent(true, path, body, head);
}

// Hands the set side the content type alone, where it looks for that line in a whole head. So it refuses a
// "POST", and the web cannot change settings: the host does so through IConfiguration.
HRESULT CUploadServer::Request(const char16_t* szPath, BSTR* body, BSTR* head) {
    return StatusOf([&] {
        TRASSDO(body&&head, return E_POINTER);
        CHTTPHeader oHTTPHeader;
        if (!oHTTPHeader.Parse(platform::ToNarrow(platform::ViewOf(*head), platform::kCodePageThread)))
            return E_INVALIDARG;
        platform::Bstr contentType(
            platform::ToWide(oHTTPHeader.GetParam("content-type"), platform::kCodePageThread));

        const std::u16string_view path = szPath == nullptr ? std::u16string_view() : szPath;
        std::u16string strTail(TrimSlashes(path.substr(std::min(kPathWordLength, path.size()))));
        CRequestAuth oAuth;
        // The host's credentials stand behind those that the query names itself, since the last value of a
        // key counts. A request without credentials goes on without them.
        if (SUCCEEDED(m_spWebHandlerHost->GetRequestAuth(*head, &oAuth))) {
            strTail += strTail.find(u'?') == std::u16string::npos ? u'?' : u'&';
            strTail += u"login=";
            strTail += platform::ViewOf(oAuth.bstrLogin);
            strTail += u"&password=";
            strTail += platform::ViewOf(oAuth.bstrPassword);
        }

        BSTR text = contentType.Detach();
        const HRESULT hr = GetSetContent(oHTTPHeader.IsPost(), platform::Bstr(strTail).Get(), body, &text);
        contentType = platform::Bstr::Adopt(text);
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        // The host frees the old head, and decides what it makes of a head that a text brings along.
        *head = platform::Bstr(u"content-type: " + std::u16string(contentType.View()) + u"\n").Detach();
        return S_OK;
    });
}
