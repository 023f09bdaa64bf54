// Writes a module's image: headers, and behind them one section with the resource directory. The layout is
// that of the published portable executable format, placed as a loader would have mapped it, so that offsets
// in the file and in memory are the same.
#pragma once

#include <cstdint>
#include <string>
#include <variant>
#include <vector>

namespace rescomp {

// A type or a name. Texts come before numbers, as a directory has them.
using Key = std::variant<std::u16string, std::uint16_t>;

// One variant of a resource.
struct Resource {
    Key type;
    Key name;
    std::uint16_t language = 0;
    std::uint32_t codePage = 0;
    std::string bytes;
};

// The image, a whole number of pages. The same resources give the same bytes. Throws InputError for two
// resources of one type, name and language, and for more than an image can hold.
std::string BuildImage(std::vector<Resource> resources);

} // namespace rescomp
