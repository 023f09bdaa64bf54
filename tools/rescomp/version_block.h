// The version block of a module, in the published format.
#pragma once

#include <cstdint>
#include <string>

#include "tools/rescomp/image_writer.h"

namespace rescomp {

// `version` has up to four numbers with dots between them. Throws InputError for one that has not.
Resource VersionBlock(const std::string& version, std::uint16_t language);

} // namespace rescomp
