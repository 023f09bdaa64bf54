#include "server/UploadServer.h"

#include "platform/resources.h"
#include "runtime/trace/Trace.h"

namespace {

// The path word under which the host routes requests to this component.
constexpr char16_t kPathWord[] = u"mobile";

// What the video source is called, in the module's string table.
constexpr std::uint16_t kSourceName = 100;

} // namespace

CUploadServer::~CUploadServer() {
    // A receive loop holds its camera, so phones would stay connected if only the table went.
    for (const auto& [name, spCam] : m_oCams)
        spCam->CloseConnection();
}

HRESULT CUploadServer::FinalConstruct() {
    // Settings that cannot be read are no reason to fail: the object starts without cameras and takes new
    // ones.
    (void)StatusOf([&] { return Load(); });
    HRESULT hr = platform::CoCreateInstance(kWebHandlerHostClass, nullptr, platform::kContextAll,
                                            IWebHandlerHost::iid, m_spWebHandlerHost.ReceiveVoid());
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    hr = m_spWebHandlerHost->RegisterHandler(kPathWord, this);
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    return S_OK;
}

HRESULT CUploadServer::Subscribe(IVideoSourceSink* pVideoSourceSink) {
    return StatusOf([&] {
        TRASSDO(pVideoSourceSink, return E_POINTER);
        // The test stands under the lock as well, so that of two subscribers at once one is refused, not
        // lost.
        const platform::SectionGuard guard(m_oLock);
        TRASSDO(!m_spVideoSourceSink, return E_UNEXPECTED);
        const platform::ComPtr<IVideoSourceSink> spSink(pVideoSourceSink);
        ForEachName([&](BSTR name) { spSink->OnCamAdded(name); });
        m_spVideoSourceSink = spSink;
        return S_OK;
    });
}

HRESULT CUploadServer::Unsubscribe(IVideoSourceSink* pVideoSourceSink) {
    return StatusOf([&] {
        const platform::SectionGuard guard(m_oLock);
        TRASSDO(m_spVideoSourceSink==pVideoSourceSink, return S_FALSE);
        // Null is no subscriber, although it equals the member while nobody is subscribed.
        if (pVideoSourceSink == nullptr)
            return S_FALSE;
        const platform::ComPtr<IVideoSourceSink> spSink = m_spVideoSourceSink;
        ForEachName([&](BSTR name) { spSink->OnCamRemoved(name); });
        m_spVideoSourceSink = nullptr;
        return S_OK;
    });
}

HRESULT CUploadServer::ConnectToCam(BSTR bstrName, ICam** ppCam) {
    return StatusOf([&] {
        TRASSDO(ppCam, return E_POINTER);
        const platform::SectionGuard guard(m_oLock);
        const auto it = m_oCams.find(platform::ViewOf(bstrName));
        if (it == m_oCams.end())
            return E_FAIL;
        *ppCam = platform::ComPtr<ICam>(it->second).Detach();
        return S_OK;
    });
}

HRESULT CUploadServer::RemoveCam(BSTR bstrName) {
    return StatusOf([&] {
        const platform::SectionGuard guard(m_oLock);
        const platform::Bstr name(platform::ViewOf(bstrName));
        if (!m_oCams.contains(name.View()))
            return E_FAIL;
        HRESULT hr = S_OK;
        if (const platform::ComPtr<IVideoSourceSink> spSink = m_spVideoSourceSink)
            hr = spSink->OnCamRemoved(platform::Bstr(name).Get());
        // Looked up again: the sink may have removed it itself.
        if (const auto it = m_oCams.find(name.View()); it != m_oCams.end()) {
            // The loop's own reference would otherwise keep the camera and its connection alive.
            it->second->CloseConnection();
            m_oCams.erase(it);
        }
        return hr;
    });
}

HRESULT CUploadServer::GetName(BSTR* szName) {
    return StatusOf([&] {
        TRASSDO(szName, return E_POINTER);
        *szName = platform::LoadResourceString(kSourceName).Detach();
        return S_OK;
    });
}
