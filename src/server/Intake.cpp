// Gives each connection its owner, or rejects it.

#include <memory>
#include <new>
#include <utility>

#include "Common/ProcessStateTree/ProcessStateTreeSDK/ProcessStateTreeEx.h"
#include "platform/scope.h"
#include "platform/socket.h"
#include "runtime/trace/Trace.h"
#include "server/Request.h"
#include "server/UploadServer.h"
#include "viewing/Packeter.h"

namespace {

// Closes a socket, and only once: 0 stands for one that is closed or has its owner.
void Close(SOCKET& hSocket) noexcept {
    const SOCKET hOpen = std::exchange(hSocket, 0);
    if (hOpen != 0 && hOpen != INVALID_SOCKET)
        platform::closesocket(hOpen);
}

// Rejects a connection: logs the reason and closes its socket. Gives the status back.
HRESULT Reject(std::u16string_view name, SOCKET& hSocket, HRESULT hr) {
    LOG_AS("CUploadServer::OnConnection");
    const auto text = SystemErrorText(static_cast<std::uint32_t>(hr));
    LogPrintf(LOG_SITE(), kChannelMobile, u"connection of %s rejected: 0x%X, (%s)\n", name, hr,
              text ? std::u16string_view(*text) : std::u16string_view{});
    Close(hSocket);
    return hr;
}

} // namespace

HRESULT CUploadServer::OnConnection(BSTR bstrName, SOCKET hSocket, std::int32_t bUpload,
                                    std::int32_t nAuthSize, const std::uint8_t* pAuth) {
    // Exhausted memory may end the work below at any point, with a socket that has no owner yet.
    const platform::AtScopeEnd close([&] { Close(hSocket); });
    return StatusOf([&] {
        const std::u16string_view name = platform::ViewOf(bstrName);
        LogPrintf(LOG_SITE(), kChannelMobile, u"connection of %s\n", name);
        if (bUpload != 0)
            return StartUpload(name, hSocket);
        const HRESULT hr = StatusOf([&] { return StartViewing(name, hSocket, nAuthSize, pAuth); });
        return FAILED(hr) ? Reject(name, hSocket, hr) : hr;
    });
}

HRESULT CUploadServer::StartUpload(std::u16string_view name, SOCKET& hSocket) {
    LOG_AS("CUploadServer::OnConnection");
    HRESULT hr = S_OK;
    {
        // Held through the phone's authentication. The host hands a connection over only when the phone's
        // record has arrived, so nobody waits here for a phone that stalls.
        const platform::SectionGuard guard(m_oLock);
        const auto it = m_oCams.find(name);
        if (it == m_oCams.end()) {
            Close(hSocket);
            LogPrintf(LOG_SITE(), kChannelMobile, u"connection of %s rejected: no such name\n", name);
            return E_ACCESSDENIED;
        }
        const platform::ComPtr<CCam> spCam = it->second;
        const std::string password =
            platform::ToNarrow(spCam->m_bstrPassword.View(), platform::kCodePageThread);
        hr = spCam->Init(hSocket, password.c_str());
        if (SUCCEEDED(hr)) {
            hSocket = 0;
            (void)StatusOf([&] { // memory that is short for the line does not undo the start
                LogPrintf(LOG_SITE(), kChannelMobile, u"upload for %s started\n", name);
                return S_OK;
            });
            return S_FALSE;
        }
        TRASSDO(SUCCEEDED(_ARE(hr)), {});
    }
    return Reject(name, hSocket, hr);
}

// Takes no lock, so a viewer waits for nobody. After a failure hSocket is the caller's, or 0 if it is closed.
HRESULT CUploadServer::StartViewing(std::u16string_view name, SOCKET& hSocket, std::int32_t nAuthSize,
                                    const std::uint8_t* pAuth) {
    LOG_AS("CUploadServer::OnConnection");
    // A block that cannot be read holds no credentials.
    if (nAuthSize < 0 || (nAuthSize > 0 && pAuth == nullptr))
        return E_INVALIDARG;
    platform::Bstr bstrParams;
    const platform::Bstr bstrKey = SplitPath(platform::Bstr(name), bstrParams, true);

    HRESULT hr = m_spWebServer ? S_OK : FindWebServer();
    if (FAILED(hr))
        return hr;
    platform::ComPtr<IUnknown> spContent;
    hr = m_spWebServer->OpenContent(bstrKey.Get(), nAuthSize, pAuth, spContent.Receive());
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    const auto spXmlConfig = spContent.Query<IConfiguration>();
    TRASSDO(spXmlConfig, return E_NOINTERFACE);

    std::unique_ptr<CPacketer> pPacketer(new (std::nothrow) CPacketer);
    hr = pPacketer == nullptr ? E_OUTOFMEMORY
                              : pPacketer->Init(hSocket, spXmlConfig.Get(), bstrParams.Get(),
                                                static_cast<std::uint32_t>(nAuthSize), pAuth);
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    hSocket = 0;
    LogPrintf(LOG_SITE(), kChannelMobile, u"starting Packeter for %s\n", name);
    // If no thread can be had, the packeter has closed the socket: the phone sees a stream that ends at once,
    // and the host has nothing left to do.
    (void)CPacketer::Start(std::move(pPacketer));
    return S_OK;
}

// Looks the host's web server up for the first viewer. If two look it up at once, the first result stays, so
// that no reference in use is ever replaced. After a failure the next viewer tries again.
HRESULT CUploadServer::FindWebServer() {
    LOG_AS("CUploadServer::OnConnection");
    platform::ComPtr<IProcessStateNode> spNode;
    HRESULT hr = NSProcessStateTree::LookupProcessStateNode(kWebServerNode, 0, spNode.Receive());
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    platform::ComPtr<IUnknown> spValue;
    hr = spNode->GetValue(spValue.Receive());
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    m_spWebServer.SetOnce(spValue.Query<IWebServer>());
    TRASSDO(m_spWebServer, return E_NOINTERFACE);
    return S_OK;
}
