// What a handler has to say, as an answer for a phone or a browser.
#pragma once

#include "host/http/answer.h"
#include "host/http/request.h"
#include "interfaces/IWebHandler.h"

namespace host {

// The answer of a registered handler to a GET or HEAD request, whoever asks having been let in already.
//
// Texts go out as UTF-8, without the zero that the component puts behind them. A page that names a style
// sheet of the same handler is sent as HTML to clients that prefer it. Archives carry the name that the query
// gives them, and a path NAME.jad is the descriptor of the archive NAME.jar. Nothing of it is kept by caches:
// an archive holds a password.
Answer HandlerAnswer(const Request& request, IWebHandler& handler);

} // namespace host
