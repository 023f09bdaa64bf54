#include "camera/VMS.h"

#include <cstring>
#include <memory>
#include <new>
#include <span>

#include "platform/scope.h"
#include "platform/threads.h"
#include "runtime/trace/Trace.h"

namespace {

// Gives the status of the socket operation that has just failed.
HRESULT SocketStatus() noexcept {
    const HRESULT hr = platform::StatusFromError(platform::LastSocketError());
    return hr == S_OK ? E_FAIL : hr;
}

// Compares the whole of the shorter text even if the first bytes differ, so that the time taken does not tell
// how many of them are right.
bool PasswordsAreEqual(std::span<const char> field, const char* szStored) noexcept {
    const std::size_t nGiven = ::strnlen(field.data(), field.size());
    const std::size_t nStored = std::strlen(szStored);
    unsigned nDifference = nGiven == nStored ? 0 : 1;
    for (std::size_t i = 0; i < nGiven && i < nStored; ++i)
        nDifference |= static_cast<unsigned char>(field[i]) ^ static_cast<unsigned char>(szStored[i]);
    return nDifference == 0;
}

// Makes a zero-filled buffer of exactly that size, also of size 0. Null when memory is short.
std::unique_ptr<std::uint8_t[]> MakeBuffer(std::size_t nSize) noexcept {
    return std::unique_ptr<std::uint8_t[]>(new (std::nothrow) std::uint8_t[nSize]());
}

} // namespace

HRESULT CVMSSource::Init(SOCKET hSocket, const char* szStoredPassword) {
    TRASSDO(hSocket && INVALID_SOCKET!=hSocket, return E_INVALIDARG);

    CloseConnection();
    m_hSocket.store(hSocket, std::memory_order_release);
    // Until the loop has it, the socket stays the caller's: a failure forgets it and closes nothing.
    bool bStarted = false;
    const platform::AtScopeEnd forget([&] {
        if (!bStarted)
            m_hSocket.store(0, std::memory_order_release);
    });

    // A failed read is not looked at: the missing bytes stay zero. The comparison refuses them or, if the
    // stored password is empty, the loop ends at its first read.
    SAuthRequest oAuthRequest{};
    (void)Read(hSocket, &oAuthRequest, sizeof oAuthRequest);

    SAuthResponce oAuthResponce{};
    oAuthResponce.nResponce = PasswordsAreEqual(oAuthRequest.szPassword, szStoredPassword)
                                  ? SAuthResponce::erSuccess
                                  : SAuthResponce::erDenied;
    const HRESULT hr = Send(hSocket, &oAuthResponce, sizeof oAuthResponce);
    TRASSDO(SAuthResponce::erSuccess==oAuthResponce.nResponce, return E_ACCESSDENIED);
    if (FAILED(hr))
        return hr;

    std::unique_ptr<SConnection> pConnection(
        new (std::nothrow) SConnection{platform::ComPtr<IUnknown>(&m_oOwner), this, hSocket, 0});
    if (pConnection == nullptr)
        return E_OUTOFMEMORY;
    // The loop may end, and clear the handle, before the next line runs here.
    bStarted = true;
    const bool bRes =
        platform::QueueUserWorkItem(&WorkItem, pConnection.get(), platform::WT_EXECUTELONGFUNCTION);
    TRASSDO(bRes, bStarted = false; return platform::StatusFromError(platform::LastError()));
    (void)pConnection.release(); // the work item's now
    return hr;
}

void CVMSSource::CloseConnection() noexcept {
    if (const SOCKET hSocket = m_hSocket.exchange(0, std::memory_order_acq_rel))
        platform::closesocket(hSocket);
}

std::uint32_t CVMSSource::WorkItem(void* pConnection) {
    const std::unique_ptr<SConnection> pOwned(static_cast<SConnection*>(pConnection));
    // The pool has no use for a status; exhausted memory ends this connection and nothing else.
    (void)StatusOf([&] { return pOwned->pSource->EntryPoint(*pOwned); });
    return 0;
}

HRESULT CVMSSource::EntryPoint(SConnection& oConnection) {
    // The socket is closed on every way out, also by an exception.
    bool bOpen = true;
    const platform::AtScopeEnd close([&] {
        if (bOpen)
            EndConnection(oConnection.hSocket);
    });
    LogPrintf(LOG_SITE(), kChannelMobile, u"Start\n");
    const HRESULT hr = ReceiveFrames(oConnection);
    bOpen = false;
    EndConnection(oConnection.hSocket);
    LogPrintf(LOG_SITE(), kChannelMobile, u"Stop\n");
    return hr;
}

HRESULT CVMSSource::ReceiveFrames(SConnection& oConnection) {
    LOG_AS("CVMSSource::EntryPoint");
    StreamHeaderSize nHeaderSize = 0;
    HRESULT hr = Read(oConnection.hSocket, &nHeaderSize, sizeof nHeaderSize);
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);

    // A failed allocation, here and for a frame, ends the connection as a failed read does.
    const auto pHeader = MakeBuffer(nHeaderSize);
    hr = pHeader == nullptr ? E_OUTOFMEMORY : Read(oConnection.hSocket, pHeader.get(), nHeaderSize);
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);

    for (std::uint32_t nReceived = 0;; ++nReceived) {
        if (oConnection.nRequested < kFrameLowWater) {
            const SFrameRequest oRequest{kFrameGrant};
            hr = Send(oConnection.hSocket, &oRequest, sizeof oRequest);
            TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
            oConnection.nRequested += oRequest.nCount;
            LogPrintf(LOG_SITE(), kChannelMessage, u"get %d frames, already received: %d\n", oRequest.nCount,
                      nReceived);
        }

        SFrameResponce oFrameHeader{};
        hr = Read(oConnection.hSocket, &oFrameHeader, sizeof oFrameHeader);
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        TRASSDO(SFrameResponce::ehtFrameDescriptor & _AR(oFrameHeader.nDescriptor), return hr);
        --oConnection.nRequested;

        // The buffer has exactly the announced size: the picture is neither parsed nor copied here.
        const auto pBody = MakeBuffer(oFrameHeader.nSize);
        hr = pBody == nullptr ? E_OUTOFMEMORY : Read(oConnection.hSocket, pBody.get(), oFrameHeader.nSize);
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        OnFrame(pHeader.get(), nHeaderSize, pBody.get(), oFrameHeader.nSize);
    }
}

void CVMSSource::EndConnection(SOCKET hSocket) noexcept {
    // Whoever takes the handle out of the member closes it: a new connection or the removal of the camera may
    // have done so already.
    SOCKET hOwn = hSocket;
    if (m_hSocket.compare_exchange_strong(hOwn, 0, std::memory_order_acq_rel))
        platform::closesocket(hSocket);
}

HRESULT CVMSSource::Read(SOCKET hSocket, void* pData, std::size_t nSize) {
    auto* pTo = static_cast<std::uint8_t*>(pData);
    while (nSize > 0) {
        const int res = platform::recv(hSocket, pTo, static_cast<int>(nSize), 0);
        if (res == 0)
            return E_CONNECTION_ABORTED;
        if (res < 0) {
            const HRESULT hr = SocketStatus();
            TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
        }
        pTo += res;
        nSize -= static_cast<std::size_t>(res);
    }
    return S_OK;
}

HRESULT CVMSSource::Send(SOCKET hSocket, const void* pData, std::size_t nSize) {
    const int dwSize = static_cast<int>(nSize);
    const int res = platform::send(hSocket, pData, dwSize, 0);
    if (res < 0) {
        const HRESULT hr = SocketStatus();
        TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    }
    TRASSDO(res==dwSize, return E_UNEXPECTED);
    return S_OK;
}
