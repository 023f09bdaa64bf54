// The server end of the camera wire protocol.
#pragma once

#include <atomic>
#include <cstddef>
#include <cstdint>

#include "camera/VMSProtocol.h"
#include "platform/com.h"
#include "platform/socket.h"

// Owns one connection at a time: authenticates the phone, then reads its frames on a pool thread and grants
// them ten at a time. It knows nothing of pictures.
class CVMSSource {
public:
    // Takes `hSocket` over: closes the connection that it may still hold, reads the phone's record, answers
    // it and starts the receive loop. Blocks until the record has arrived or the connection breaks. S_OK: the
    // socket is the source's. Any failure leaves the socket to the caller: E_INVALIDARG (0 or INVALID_SOCKET;
    // a running connection goes on), E_ACCESSDENIED (wrong password), the status of a failed send, the pool's
    // refusal. Not for two threads at once; the server calls it under its lock.
    HRESULT Init(SOCKET hSocket, const char* szStoredPassword);

    // Closes the connection, if there is one, which ends its receive loop. Any thread.
    void CloseConnection() noexcept;

    // Tells whether there is a connection, from the start of its authentication to its end. Any thread.
    [[nodiscard]] bool IsConnected() const noexcept { return m_hSocket.load(std::memory_order_acquire) != 0; }

protected:
    // `oOwner` is the object that this source is part of. A receive loop holds a reference to it to its last
    // line, so the source outlives its loops.
    explicit CVMSSource(IUnknown& oOwner) noexcept : m_oOwner(oOwner) {}
    CVMSSource(const CVMSSource&) = delete;
    CVMSSource& operator=(const CVMSSource&) = delete;
    ~CVMSSource() { CloseConnection(); }

    // Takes one frame: the header bytes of the connection and the frame's body, valid during the call. Called
    // on the receive loop's thread, outside any lock of this class.
    virtual void OnFrame(const std::uint8_t* pHeader, std::uint32_t nHeaderSize, const std::uint8_t* pBody,
                         std::uint32_t nBodySize) = 0;

private:
    // What one receive loop works on. It closes the socket that it was started with and counts its own
    // credit, so the end of a replaced connection cannot touch the new one.
    struct SConnection {
        platform::ComPtr<IUnknown> spOwner;
        CVMSSource* pSource;
        SOCKET hSocket;
        std::uint32_t nRequested; // frames asked for and not yet received
    };

    static std::uint32_t WorkItem(void* pConnection);
    HRESULT EntryPoint(SConnection& oConnection);
    HRESULT ReceiveFrames(SConnection& oConnection);
    void EndConnection(SOCKET hSocket) noexcept;

    static HRESULT Read(SOCKET hSocket, void* pData, std::size_t nSize);
    static HRESULT Send(SOCKET hSocket, const void* pData, std::size_t nSize);

    IUnknown& m_oOwner;
    std::atomic<SOCKET> m_hSocket{0}; // 0 while there is no connection
};
