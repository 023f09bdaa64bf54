// What viewing phones get of the host's sources: each one what its sign-in sees, for as long as it does.
#pragma once

#include <functional>
#include <memory>
#include <optional>
#include <string_view>

#include "host/sources/source_table.h"
#include "host/users/rights.h"
#include "kit/content/content_server.h"

namespace host {

// `rightsOf` tells of a credentials block what it sees now; nothing for one that is nobody's. It is called
// for as long as ContentAccess::knows is.
kit::ContentAccess PhoneContentOf(std::shared_ptr<SourceTable> sources,
                                  std::function<std::optional<Rights>(std::string_view token)> rightsOf);

} // namespace host
