// One phone that watches a source.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "image/FrameBlock.h"
#include "interfaces/IConfiguration.h"
#include "interfaces/IMobileFramePacker.h"
#include "platform/com.h"
#include "platform/socket.h"
#include "platform/text.h"

// Pulls pictures out of a content object of the host, has a frame packer pack them and writes what that gives
// to the phone, until the packer is finished or something fails. It polls, at the packer's rate, and so shows
// whatever the host can serve.
//
// Belongs to its thread from Start on; nobody else touches it, so it takes no lock. No operation stops it:
// the host ends it by a content object or a packer that fails, or by closing the phone's socket. Nothing is
// read from the phone; that it has left shows at the next send.
class CPacketer {
public:
    CPacketer() = default;
    CPacketer(const CPacketer&) = delete;
    CPacketer& operator=(const CPacketer&) = delete;
    ~CPacketer();

    // Takes a connected socket over, a reference to the content object, and copies of the packer's parameter
    // text (null for none) and of the credentials block. E_POINTER when socket or object are missing,
    // E_OUTOFMEMORY; nothing is kept then, and the socket stays the caller's.
    HRESULT Init(SOCKET hSocket, IConfiguration* pXmlConfig, BSTR bstrParams, std::uint32_t nCredentialsSize,
                 const std::uint8_t* pCredentials);

    // Hands an initialised packeter over to a thread of its own. If there is no thread for it, it is
    // destroyed at once, which closes the socket, and the result is false.
    static bool Start(std::unique_ptr<CPacketer> pPacketer);

    // Runs the whole stream on the calling thread. The status says why it ended; the thread function drops
    // it, since all that the phone can see is that the connection closes.
    HRESULT Main();

private:
    static std::uint32_t ThreadMain(void* pPacketer);

    struct SDecodedPicture;
    struct SFetched {
        platform::Bstr bstrContent;
        platform::Bstr bstrRequest; // the one that went in, or that the object put in its place
    };

    HRESULT ShowPicture(const std::u16string& strRequest, SDecodedPicture& oDecoded, bool& bMore);
    HRESULT Fetch(const char16_t* szPath, const std::u16string& strRequest, SFetched& oFetched);
    int Send(const void* pBytes, std::size_t nSize) const noexcept;

    // Released in the reverse of this order, after the socket was closed.
    platform::ComPtr<IConfiguration> m_spXmlConfig;
    platform::ComPtr<IMobileFramePacker> m_spPacker; // null until Main has made it
    platform::Bstr m_bstrParams;
    std::vector<std::uint8_t> m_oCredentials;
    SOCKET m_hSocket = 0;
};
