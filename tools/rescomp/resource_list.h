// The list of a module's resources. resources/resources.list says how its lines look.
#pragma once

#include <string>
#include <vector>

#include "tools/rescomp/image_writer.h"

namespace rescomp {

struct ListOptions {
    std::vector<std::string> folders; // where files are looked for, first to last
    std::string version;
};

// Every resource of the list, with its content. Throws InputError.
std::vector<Resource> ReadResourceList(const std::string& file, const ListOptions& options);

} // namespace rescomp
