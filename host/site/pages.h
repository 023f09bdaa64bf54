// Requests that end in one answer.
#pragma once

#include "host/http/answer.h"
#include "host/http/request.h"
#include "host/site/services.h"

namespace host {

// Whoever asks has been let in already.
Answer PageAnswer(const Request& request, const Services& services);

// A file of the page; it must be there.
Answer NamedAsset(std::string_view name, const Request& request);

// The camera that a path names behind `prefix` and before `suffix`; null when there is none.
FeedPtr FeedOfPath(std::string_view path, std::string_view prefix, std::string_view suffix,
                   const Services& services);

} // namespace host
