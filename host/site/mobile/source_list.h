// The sources of this server, as a list for the viewing midlet.
#pragma once

#include <optional>

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/services.h"

namespace host {

// "/xslt/enum/all": what the midlet's manifest names as its list of cameras, and what the mobile page links
// to. The query names the form: xslt=cameras.xsl is plain text for the midlet, a line a source with its key,
// a tab and its name; any other form is for a browser, which is sent to the live page.
bool IsSourceListPath(std::string_view path) noexcept;

// Whoever asks has been let in already.
Answer SourceListAnswer(const Request& request, const Services& services);

} // namespace host
