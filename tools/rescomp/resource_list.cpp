#include "tools/rescomp/resources.h"

#include <algorithm>
#include <filesystem>
#include <set>

#include "platform/text.h"
#include "tools/rescomp/input.h"

namespace rescomp {

namespace {

using Words = std::vector<std::string_view>;

// "7" or "7-9"
void AddNumbers(std::set<std::uint16_t>& numbers, std::string_view word, const std::string& place) {
    const std::size_t dash = std::min(word.find('-'), word.size());
    const auto first = ParseNumber(word.substr(0, dash));
    const auto last = dash == word.size() ? first : ParseNumber(word.substr(dash + 1));
    if (!first || !last || *last < *first)
        throw InputError(place + "\"" + std::string(word) + "\" is no number and no range of numbers");
    for (std::uint32_t number = *first; number <= *last; ++number)
        numbers.insert(static_cast<std::uint16_t>(number));
}

std::string WithCarriageReturns(std::string_view text, const std::string& file) {
    if (text.find('\r') != std::string_view::npos)
        throw InputError(file + ": has carriage returns, which are added by \"crlf\"");
    std::string result;
    for (const char c : text) {
        if (c == '\n')
            result += '\r';
        result += c;
    }
    return result;
}

class Reader {
public:
    explicit Reader(const ListOptions& options) : m_options(options) {}

    void TakeLine(const Line& line) {
        const Words words = SplitWords(line.text, 64);
        if (words[0] == "strings" && words.size() > 2)
            TakeStrings(words, line.place);
        else if (words[0] == "version" && words.size() == 1)
            TakeVersion(line.place);
        else if (words.size() == 4 || (words.size() == 5 && words[4] == "crlf"))
            TakeFile(words, line.place);
        else
            throw InputError(line.place + "expected type, name, languages, file");
    }

    std::vector<Resource> resources;

private:
    void TakeStrings(const Words& words, const std::string& place) {
        std::set<std::uint16_t> required;
        for (std::size_t i = 2; i < words.size(); ++i)
            AddNumbers(required, words[i], place);
        for (const LanguageTexts& texts : ReadTextFolder(Find(words[1], place), required)) {
            m_languages.push_back(texts.language);
            for (Resource& block : StringBlocks(texts))
                resources.push_back(std::move(block));
        }
    }

    void TakeVersion(const std::string& place) {
        for (const std::uint16_t language : AllLanguages(place))
            resources.push_back(VersionBlock(m_options.version, language));
    }

    void TakeFile(const Words& words, const std::string& place) {
        const auto type = ParseNumber(words[0]);
        const auto name = ParseNumber(words[1]);
        if (!name)
            throw InputError(place + "the name of a resource is a number");
        std::vector<std::uint16_t> languages{0};
        if (words[2] == "all")
            languages = AllLanguages(place);
        else if (const auto language = ParseNumber(words[2]))
            languages = {*language};
        else if (words[2] != "neutral")
            throw InputError(place + "languages are \"neutral\", \"all\" or a number");
        const std::string path = Find(words[3], place);
        std::string bytes = ReadInput(path);
        if (words.size() == 5)
            bytes = WithCarriageReturns(bytes, path);
        for (const std::uint16_t language : languages)
            resources.push_back({type ? Key{*type} : Key{platform::FromUtf8(words[0])}, Key{*name}, language,
                                 platform::CodePageOfLanguage(language), bytes});
    }

    const std::vector<std::uint16_t>& AllLanguages(const std::string& place) const {
        if (m_languages.empty())
            throw InputError(place +
                             "a line \"strings\" must come first, which says what languages there are");
        return m_languages;
    }

    std::string Find(std::string_view name, const std::string& place) const {
        for (const std::string& folder : m_options.folders) {
            std::string path = folder + "/" + std::string(name);
            std::error_code error;
            if (std::filesystem::exists(path, error))
                return path;
        }
        throw InputError(place + std::string(name) + " is in none of the folders");
    }

    const ListOptions& m_options;
    std::vector<std::uint16_t> m_languages;
};

} // namespace

std::vector<Resource> ReadResourceList(const std::string& file, const ListOptions& options) {
    Reader reader(options);
    const std::string content = ReadInput(file);
    for (const Line& line : SplitLines(content, file))
        reader.TakeLine(line);
    return std::move(reader.resources);
}

} // namespace rescomp
