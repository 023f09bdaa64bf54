// Intake of phone connections: the door by which a socket enters the component.
#pragma once

#include <cstdint>

#include "platform/com.h"
#include "platform/socket.h"
#include "platform/text.h"

// The class of the one server object, "UploadServer".
inline constexpr GUID kUploadServerClass{
    0x158F9099, 0xFA63, 0x4B67, {0xB2, 0x21, 0xC9, 0xA2, 0x2E, 0x50, 0x61, 0xE9}};

struct IUploadServer : IUnknown {
    static constexpr GUID iid{0x714B7026, 0x75F9, 0x40D4, {0x89, 0x88, 0x2A, 0xCB, 0xC4, 0x36, 0x7A, 0xBC}};

    // Gives a connected socket an owner. The socket passes with the call in every outcome: after a negative
    // status it is closed, once.
    //   bstrName   tail of the request's path behind "mobile/video", without leading or trailing "/"
    //   bUpload    non-zero: the phone uploads into the camera of that name; zero: the phone views
    //   pAuth      nAuthSize bytes, the credentials block that the host made for this request; used for
    //              viewing only
    // S_FALSE: an upload started. S_OK: a viewing started. E_ACCESSDENIED: no such camera, or a wrong
    // password. E_INVALIDARG: an upload without a valid socket. Any other failure of the conversation with
    // the phone. Any thread. An upload blocks until the phone has sent its authentication record, with the
    // server's lock held.
    virtual HRESULT OnConnection(BSTR bstrName, SOCKET hSocket, std::int32_t bUpload, std::int32_t nAuthSize,
                                 const std::uint8_t* pAuth) = 0;

protected:
    ~IUploadServer() = default;
};
