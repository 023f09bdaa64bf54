// The display texts: a file of UTF-8 for each language, and the blocks of sixteen that a module carries them
// in.
//
// A file has a line "language N" and then one text a line: its number, a blank, the text.
#pragma once

#include <cstdint>
#include <map>
#include <set>
#include <string>
#include <vector>

#include "tools/rescomp/image_writer.h"

namespace rescomp {

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

} // namespace rescomp
