// Content by path.
#pragma once

#include "platform/com.h"
#include "platform/text.h"

struct IConfiguration : IUnknown {
    static constexpr GUID iid{0x19D1BDF5, 0xA97F, 0x405A, {0xB0, 0x82, 0x69, 0x3B, 0xE1, 0x9F, 0xDA, 0xBF}};

    // `body` and `head` go in and come out: on success their old values are freed and new ones, the caller's
    // to free, stand in their place; on failure both stay as they came in, but for one case below. `body` may
    // hold any bytes: its byte length counts.
    //
    // So it is with the server object, whose paths have these first segments:
    //
    //   path           body                                                  head
    //   config         the settings document, UTF-16; set: read back         text
    //   mobile.xsl     the mobile page's style sheet, bytes                  text
    //   Sendora.jar    an archive, bytes; "login" and "password" in a        "application/java-archive"
    //   Viewlander.jar query, else E_ACCESSDENIED
    //   any other      the mobile page, UTF-8, and a zero byte               text
    //
    // A text's head is "HTTP/1.0 200 OK\r\ncontent-type: text/xml\r\n". SetContent differs for "config"
    // alone: `body` is the new document and `head` has a first line, whatever it says, and a line
    // "content-type: text/xml" with its line feed; E_UNEXPECTED without it. A `body` that is no document
    // changes nothing: the document's status comes back, and with it, as after a success, the settings as
    // they stand. A set that cannot be carried through (E_FAIL, for example for items that have no key, or
    // E_OUTOFMEMORY) leaves settings and file as they were. An item that is refused by itself ends the set
    // there with a success, and what was done by then stays: the settings that come back tell.
    //
    // The host's content objects leave the old values to the caller: see IWebServer.h.
    virtual HRESULT GetContent(BSTR path, BSTR* body, BSTR* head) = 0;
    virtual HRESULT SetContent(BSTR path, BSTR* body, BSTR* head) = 0;

protected:
    ~IConfiguration() = default;
};
