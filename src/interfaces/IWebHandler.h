// The contract between the component and the web server of its host.
//
// The host routes to the registered handler every request whose path starts with the word that it was
// registered for. Paths have no leading "/" and hold the query, if there is one. For each request the host
// first asks IsStreamPath: on 1 it hands the connection over with Process, on 0 it asks for one answer with
// Request. All operations of IWebHandler may be called on any thread, at the same time.
#pragma once

#include <cstdint>

#include "platform/com.h"
#include "platform/socket.h"
#include "platform/text.h"

struct IWebHandler : IUnknown {
    static constexpr GUID iid{0x4707E73B, 0x5ABE, 0x4D5C, {0xBF, 0xBA, 0xD1, 0xC0, 0xDB, 0xCB, 0xD7, 0x05}};

    // *bStream becomes 1 when "mobile/video" occurs in the path, else 0. S_OK always.
    virtual HRESULT IsStreamPath(const char16_t* szPath, std::int32_t* bStream) = 0;
    // The process in which the handler lives. S_OK always.
    virtual HRESULT GetHandlerProcessId(std::uint32_t* nProcessId) = 0;
    // Takes a connection over. `head` is the request's whole head up to and including the blank line; not one
    // byte behind it may have been read from the socket. E_INVALIDARG (the head cannot be parsed) and a
    // failure of GetRequestAuth leave the socket with the host; in every other outcome it is the component's,
    // and closed if the status is negative. The host cannot tell a failed authorisation from a failed
    // connection by the status alone, so it closes its handle after any failure: closing a handle twice is
    // harmless.
    virtual HRESULT Process(const char16_t* szPath, SOCKET hSocket, BSTR head) = 0;
    // One answer: body and head come back as new texts, the caller's to free; unchanged after a failure. The
    // head that went in is replaced but not freed: the caller keeps hold of it. E_INVALIDARG for a head that
    // cannot be parsed, else the status of IConfiguration, which is asked for the path behind "mobile".
    //
    // The new head is "content-type: ", the head that IConfiguration has for that path, and "\n". Behind an
    // archive that is one line; behind a text it is a line "content-type: HTTP/1.0 200 OK" and the text's own
    // lines, of which the last content-type tells the type. What is sent of it is the host's decision.
    virtual HRESULT Request(const char16_t* szPath, BSTR* body, BSTR* head) = 0;

protected:
    ~IWebHandler() = default;
};

// What the host knows of a request's sender. The caller zeroes it before GetRequestAuth and owns what it
// holds afterwards: both texts are freed as texts, `pData` with the task allocator.
struct SRequestAuth {
    BSTR bstrLogin = nullptr;
    BSTR bstrPassword = nullptr;
    std::uint32_t nSize = 0;       // of the credentials block, bytes
    std::uint8_t* pData = nullptr; // opaque to the component
};

// Implemented by the host, as the class below.
struct IWebHandlerHost : IUnknown {
    static constexpr GUID iid{0xAB3464FB, 0xA76D, 0x477D, {0x8F, 0x5A, 0x97, 0x67, 0xDE, 0x1B, 0xC9, 0x85}};

    virtual HRESULT RegisterHandler(const char16_t* szWord, IWebHandler* pHandler) = 0;
    // `head` is a request's whole head. E_ACCESSDENIED when it carries no valid credentials.
    virtual HRESULT GetRequestAuth(BSTR head, SRequestAuth* pAuth) = 0;

protected:
    ~IWebHandlerHost() = default;
};

inline constexpr GUID kWebHandlerHostClass{
    0x6F8F32BB, 0xC3D8, 0x4BEA, {0xBE, 0x93, 0xF6, 0x94, 0xBE, 0x3E, 0xC6, 0x9B}};
