// What phones ask for, with the component's answers.
#pragma once

#include "host/base/counters.h"
#include "host/component/web_handler_host.h"
#include "host/feed/feed_table.h"
#include "host/http/answer.h"
#include "host/http/limits.h"
#include "host/http/request.h"
#include "host/sources/source_table.h"
#include "host/users/authenticator.h"

namespace host {

struct MobilePages {
    WebHandlerHost& handlers;
    FeedTable& feeds;
    const SourceTable& sources;
    Authenticator& authenticator;
    const Limits& limits;
    Counters& counters;
    const Wakeup& stop;

    // The component's handler of a request that is a stream to it, or of one that is none; null when there is
    // no such handler.
    [[nodiscard]] platform::ComPtr<IWebHandler> HandlerOf(const Request& request, bool stream) const;

    // The handler's answer to a GET or HEAD.
    //
    // Texts go out as UTF-8, without the zero that the component puts behind them. A page that names a style
    // sheet of the same handler is sent as HTML to clients that prefer it. Archives carry the name that the
    // query gives them, and a path NAME.jad is the descriptor of the archive NAME.jar. Nothing of it is kept
    // by caches: an archive holds a password.
    [[nodiscard]] Answer Content(const Request& request) const;

    // Gives the socket, from which nothing behind the head has been read, to the handler. An upload is handed
    // over only once its authentication record is there, so that the component never waits for it.
    void HandOver(Descriptor socket, const Request& request, IWebHandler& handler) const;

    // "/xslt/enum/all": what the midlet's manifest names as its list of cameras, and what the mobile page
    // links to. The query names the form: xslt=cameras.xsl is plain text for the midlet, a line a source with
    // its key, a tab and its name; any other form is for a browser, which is sent to the live page.
    [[nodiscard]] Answer SourceList(const Request& request) const;
};

} // namespace host
