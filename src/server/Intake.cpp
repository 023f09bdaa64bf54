// How a connection finds its owner.

#include "platform/socket.h"
#include "runtime/trace/Trace.h"
#include "server/UploadServer.h"

namespace {

// The head of every connection's end that is not an upload's success: says why, and closes the socket.
HRESULT Reject(std::u16string_view name, SOCKET hSocket, HRESULT hr) {
    const auto text = SystemErrorText(static_cast<std::uint32_t>(hr));
    LogPrintf(LOG_SITE(), kChannelMobile, u"connection of %s rejected: 0x%X, (%s)\n", name, hr,
              text ? std::u16string_view(*text) : std::u16string_view{});
    platform::closesocket(hSocket);
    return hr;
}

} // namespace

HRESULT CUploadServer::OnConnection(BSTR bstrName, SOCKET hSocket, std::int32_t bUpload, std::int32_t,
                                    const std::uint8_t*) {
    const HRESULT hrAll = StatusOf([&] {
        const std::u16string_view name = platform::ViewOf(bstrName);
        LogPrintf(LOG_SITE(), kChannelMobile, u"connection of %s\n", name);
        if (bUpload != 0)
            return StartUpload(name, hSocket);
        return Reject(name, hSocket, E_NOTIMPL);
    });
    // Exhausted memory may have ended the work above anywhere. The socket is this component's in every
    // outcome, and closing a closed handle does nothing.
    if (FAILED(hrAll))
        platform::closesocket(hSocket);
    return hrAll;
}

HRESULT CUploadServer::StartUpload(std::u16string_view name, SOCKET hSocket) {
    HRESULT hr = S_OK;
    {
        // Held through the phone's authentication. The host hands a connection over only when the phone's
        // record has arrived, so nobody waits here for a phone that stalls.
        const platform::SectionGuard guard(m_oLock);
        const auto it = m_oCams.find(name);
        if (it == m_oCams.end()) {
            platform::closesocket(hSocket);
            LogPrintf(LOG_SITE(), kChannelMobile, u"connection of %s rejected: no such name\n", name);
            return E_ACCESSDENIED;
        }
        const platform::ComPtr<CCam> spCam = it->second;
        const std::string password =
            platform::ToNarrow(spCam->m_bstrPassword.View(), platform::kCodePageThread);
        hr = spCam->Init(hSocket, password.c_str());
        if (SUCCEEDED(hr)) {
            LogPrintf(LOG_SITE(), kChannelMobile, u"upload for %s started\n", name);
            return S_FALSE;
        }
        TRASSDO(SUCCEEDED(_ARE(hr)), {});
    }
    return Reject(name, hSocket, hr);
}
