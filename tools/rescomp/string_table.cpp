#include "tools/rescomp/resources.h"

#include <algorithm>
#include <filesystem>

#include "platform/resources.h"
#include "platform/text.h"
#include "tools/rescomp/input.h"

namespace rescomp {

namespace {

constexpr std::uint16_t kStringsInBlock = 16;

} // namespace

LanguageTexts ParseTexts(const std::string& content, const std::string& file,
                         const std::set<std::uint16_t>& required) {
    LanguageTexts language;
    for (const Line& line : SplitLines(content, file)) {
        const auto words = SplitWords(line.text, 2);
        const std::string first(words[0]);
        const auto number =
            words.size() == 2 && first == "language" ? ParseNumber(words[1]) : ParseNumber(first);
        if (!number)
            throw InputError(line.place + "expected \"language N\", or a number and a text");
        if (first == "language") {
            if (*number == 0 || language.language != 0)
                throw InputError(line.place + "a file has one language, which is not 0");
            language.language = *number;
            continue;
        }
        if (!required.contains(*number))
            throw InputError(line.place + "no text " + first + " is asked for");
        if (words.size() < 2)
            throw InputError(line.place + "text " + first + " is missing");
        const std::u16string text = platform::FromUtf8(words[1]);
        if (text.size() > kLongestText)
            throw InputError(line.place + "text " + first + " is longer than " +
                             std::to_string(kLongestText) + " characters");
        if (!language.texts.emplace(*number, text).second)
            throw InputError(line.place + "text " + first + " stands there twice");
    }
    if (language.language == 0)
        throw InputError(file + ": the line \"language N\" is missing");
    for (const std::uint16_t number : required) {
        if (!language.texts.contains(number))
            throw InputError(file + ": text " + std::to_string(number) + " is missing");
    }
    return language;
}

std::vector<LanguageTexts> ReadTextFolder(const std::string& folder,
                                          const std::set<std::uint16_t>& required) {
    std::vector<std::string> files;
    std::error_code error;
    for (const auto& entry : std::filesystem::directory_iterator(folder, error)) {
        if (entry.path().extension() == ".strings")
            files.push_back(entry.path().string());
    }
    if (files.empty())
        throw InputError(folder + ": no file of texts (*.strings) is here");
    std::ranges::sort(files);
    std::vector<LanguageTexts> languages;
    for (const std::string& file : files) {
        LanguageTexts texts = ParseTexts(ReadInput(file), file, required);
        if (std::ranges::count(languages, texts.language, &LanguageTexts::language) != 0)
            throw InputError(file + ": the language " + std::to_string(texts.language) + " has another file");
        languages.push_back(std::move(texts));
    }
    return languages;
}

std::vector<Resource> StringBlocks(const LanguageTexts& language) {
    std::vector<Resource> blocks;
    std::set<std::uint16_t> numbers;
    for (const auto& [identifier, text] : language.texts)
        numbers.insert(identifier / kStringsInBlock);
    for (const std::uint16_t number : numbers) {
        std::string bytes;
        for (unsigned i = 0; i < kStringsInBlock; ++i) {
            const auto found = language.texts.find(static_cast<std::uint16_t>(number * kStringsInBlock + i));
            const std::u16string text = found == language.texts.end() ? u"" : found->second;
            const auto count = static_cast<std::uint16_t>(text.size());
            bytes.append(reinterpret_cast<const char*>(&count), sizeof count);
            bytes.append(reinterpret_cast<const char*>(text.data()), text.size() * sizeof(char16_t));
        }
        blocks.push_back({{platform::kResourceTypeString},
                          {static_cast<std::uint16_t>(number + 1)},
                          language.language,
                          platform::CodePageOfLanguage(language.language),
                          std::move(bytes)});
    }
    return blocks;
}

} // namespace rescomp
