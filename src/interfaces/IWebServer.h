// The host's web server as the component sees it: who serves the pictures of a source, and for whom.
//
// The host publishes one object in the process state tree under kWebServerNode, before the first viewing
// connection. The component looks it up then and keeps it for the life of the server object; so the object
// must not hold the server object in its turn.
//
// What OpenContent gives is a content object. It answers for IConfiguration, of which the component calls
// GetContent alone, from one thread at a time:
//
//   path       kContentOriginal: one picture, in the form that costs the host least. kContentJpeg: the same
//              source's present picture as one JPEG file.
//   content    comes in as null; on success a new counted byte string, the caller's to free. Whatever a
//              failing call leaves there is freed too.
//   request    comes in as the text of a request, "GET video?original HTTP/1.1\n" with the header lines of
//              the viewer ("\n" at their ends, a blank line behind them), the same first line for both paths.
//              The object may put a new text in its place and must not free the old one: the caller frees
//              both, the new one, like the content, when the picture is packed and sent. It is not looked at.
//
// "video?original" answers with a bitmap header of 40 bytes and the picture behind it, top row first whatever
// the signs of width and height. Of three forms the picture is taken as it lies there:
//
//   biCompression  biBitCount  bytes behind the header, at least
//   0              8           h rows of w
//   0              24          h rows of 3*w, blue first, no padding
//   "YV12"         any         Y, h rows of w; Cr, then Cb, each w*h/4 bytes, rows of w/2
//
// with w and h the absolute values of biWidth and biHeight; a frame block is always one of them. For any
// other form only width and height count, and the picture is fetched as a JPEG, which must not be larger. A
// content that is shorter than its header or than the picture that the header promises is a failed fetch.
//
// A failure of GetContent, whatever its status, ends the stream: it is how the host stops a viewer, for
// example when the source is gone. The call may take as long as it likes; the viewer waits.
//
// The object finds out for whom it works by the credentials block of the request: at
// ThreadArgumentPath(kCurrentRequestArgument, CurrentThreadId()) in the process state tree stands a
// CThreadArgumentValue whose type is WebServer::SCurrentRequest. The same block follows "QV-Auth: " in the
// request's text, in base64. Without a node (the publication failed) the request has no credentials.
#pragma once

#include <cstdint>

#include "platform/com.h"
#include "platform/text.h"

struct IWebServer : IUnknown {
    static constexpr GUID iid{0x07D66320, 0xA40E, 0x4501, {0xBA, 0xF7, 0xE0, 0x91, 0x97, 0x11, 0xCA, 0x77}};

    // The content object of the source under that key, for the sender of those credentials: the block that
    // GetRequestAuth gave, nAuthSize bytes, to be copied if it is kept. The key is percent-decoded; null and
    // empty are the same. The object comes with a new reference, one for each viewer. On failure (an unknown
    // key, credentials that may not watch it; any status) *ppContent is null or untouched, and the connection
    // is closed. Called from any thread, by several at a time, with no lock of the component held.
    virtual HRESULT OpenContent(BSTR bstrKey, std::int32_t nAuthSize, const std::uint8_t* pAuth,
                                IUnknown** ppContent) = 0;

protected:
    ~IWebServer() = default;
};

inline constexpr char16_t kWebServerNode[] = u"WebServer";
inline constexpr char16_t kCurrentRequestArgument[] = u"WebServer/CurrentRequest";

inline constexpr char16_t kContentOriginal[] = u"video?original";
inline constexpr char16_t kContentJpeg[] = u"video?jpeg";

namespace WebServer {

// What a viewer's thread publishes of the request that it serves. Record and block are to be used only during
// a call on that thread.
struct SCurrentRequest {
    std::uint32_t nSize;       // of the credentials block, bytes
    const std::uint8_t* pData; // may be null for size 0
};

} // namespace WebServer
