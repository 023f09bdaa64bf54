// The resources of a module. They are made of what people write: the list of them, whose lines
// resources/resources.list explains, the display texts, and the version. They become the module's image:
// headers, and behind them one section with the resource directory, in the layout of the published portable
// executable format, placed as a loader would have mapped it, so that offsets in the file and in memory are
// the same.
//
// The texts are a file of UTF-8 for each language: a line "language N" and then one text a line, its number,
// a blank, the text. A module carries them in blocks of sixteen.
#pragma once

#include <cstdint>
#include <map>
#include <set>
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

struct ListOptions {
    std::vector<std::string> folders; // where files are looked for, first to last
    std::string version;
};

// Every resource of the list, with its content. Throws InputError.
std::vector<Resource> ReadResourceList(const std::string& file, const ListOptions& options);

// No text is longer, in UTF-16 units: a display has no more room, and a longer one is a line that went
// astray.
inline constexpr std::size_t kLongestText = 255;

struct LanguageTexts {
    std::uint16_t language = 0;
    std::map<std::uint16_t, std::u16string> texts;
};

// Reads one file. Throws InputError for a number of `required` without a text, a number that is not among
// them or stands there twice, and a text that is longer than kLongestText.
LanguageTexts ParseTexts(const std::string& content, const std::string& file,
                         const std::set<std::uint16_t>& required);

// Every file "*.strings" of a folder, in the order of their names. Throws InputError for a language that two
// files have, and for a folder without any.
std::vector<LanguageTexts> ReadTextFolder(const std::string& folder, const std::set<std::uint16_t>& required);

// The blocks of one language, as resources.
std::vector<Resource> StringBlocks(const LanguageTexts& language);

// The version block of a module, in the published format.
// `version` has up to four numbers with dots between them. Throws InputError for one that has not.
Resource VersionBlock(const std::string& version, std::uint16_t language);

} // namespace rescomp
