#include "platform/registry_file.h"

#include <charconv>

#include "platform/text.h"

namespace platform {

namespace {

struct RootName {
    RegistryRoot root;
    std::string_view name;
};
constexpr RootName kRoots[] = {{RegistryRoot::LocalMachine, "HKEY_LOCAL_MACHINE"},
                               {RegistryRoot::ClassesRoot, "HKEY_CLASSES_ROOT"}};

constexpr std::string_view kHead =
    "; Registry of Morrowstream. Keys stand in brackets, values as \"name\"=number or \"name\"=\"text\".\n";

std::string_view Trim(std::string_view line) noexcept {
    const auto isBlank = [](char c) { return c == ' ' || c == '\t' || c == '\r'; };
    while (!line.empty() && isBlank(line.front()))
        line.remove_prefix(1);
    while (!line.empty() && isBlank(line.back()))
        line.remove_suffix(1);
    return line;
}

std::string Quote(std::u16string_view text) {
    std::string quoted = "\"";
    for (const char c : ToUtf8(text)) {
        if (c == '\\' || c == '"')
            quoted += {'\\', c};
        else if (c == '\r' || c == '\n')
            quoted += c == '\r' ? "\\r" : "\\n";
        else
            quoted += c;
    }
    return quoted + '"';
}

// Takes a quoted text from the front of a line.
std::optional<std::u16string> TakeQuoted(std::string_view& line) {
    std::string text;
    for (std::size_t at = 1; !line.empty() && line[0] == '"' && at < line.size(); ++at) {
        char c = line[at];
        if (c == '"') {
            line.remove_prefix(at + 1);
            return FromUtf8(text);
        }
        if (c == '\\') {
            if (++at == line.size())
                break;
            c = line[at];
            if (c == 'r' || c == 'n')
                c = c == 'r' ? '\r' : '\n';
            else if (c != '\\' && c != '"')
                break;
        }
        text += c;
    }
    return std::nullopt;
}

std::optional<std::uint32_t> ParseNumber(std::string_view text) {
    constexpr std::string_view kHexadecimal = "dword:";
    const bool hexadecimal = text.starts_with(kHexadecimal);
    if (hexadecimal)
        text.remove_prefix(kHexadecimal.size());
    std::uint32_t number = 0;
    const auto [end, error] =
        std::from_chars(text.data(), text.data() + text.size(), number, hexadecimal ? 16 : 10);
    return error == std::errc{} && end == text.data() + text.size() ? std::optional(number) : std::nullopt;
}

class Parser {
public:
    // What is wrong with a line; null when nothing is.
    const char* TakeLine(std::string_view line) {
        line = Trim(line);
        if (line.empty() || line[0] == ';' || line[0] == '#')
            return nullptr;
        return line[0] == '[' ? TakeKey(line) : TakeValue(line);
    }
    RegistryContent content;

private:
    const char* TakeKey(std::string_view line) {
        if (line.back() != ']')
            return "a key ends with \"]\"";
        line = line.substr(1, line.size() - 2);
        for (const RootName& root : kRoots) {
            if (!line.starts_with(root.name) || line.substr(root.name.size(), 1) != "\\")
                continue;
            m_key = content.MakeKey(root.root, FromUtf8(line.substr(root.name.size() + 1)));
            return m_key == nullptr ? "this is no path of keys" : nullptr;
        }
        return "a key begins with HKEY_LOCAL_MACHINE\\ or HKEY_CLASSES_ROOT\\";
    }

    const char* TakeValue(std::string_view line) {
        if (m_key == nullptr)
            return "a value stands before the first key";
        std::optional<std::u16string> name;
        if (line[0] == '@') {
            name.emplace();
            line.remove_prefix(1);
        } else {
            name = TakeQuoted(line);
        }
        line = Trim(line);
        if (!name || line.empty() || line[0] != '=')
            return "expected \"name\"=value";
        line = Trim(line.substr(1));
        if (const auto number = ParseNumber(line)) {
            m_key->insert_or_assign(*name, *number);
            return nullptr;
        }
        const auto text = TakeQuoted(line);
        if (!text || !Trim(line).empty())
            return "a value is a number or a text in double quotes";
        m_key->insert_or_assign(*name, *text);
        return nullptr;
    }

    RegistryContent::Values* m_key = nullptr;
};

} // namespace

RegistryContent::Values* RegistryContent::MakeKey(RegistryRoot root, std::u16string_view path) {
    KeyMap& keys = Keys(root);
    if (!IsRegistryText(path) || path.find_first_of(u"\r\n") != std::u16string_view::npos)
        return nullptr;
    for (std::size_t begin = 0; begin <= path.size();) {
        const std::size_t end = std::min(path.find(u'\\', begin), path.size());
        if (end == begin)
            return nullptr;
        const auto key = keys.try_emplace(std::u16string(path.substr(0, end))).first;
        if (end == path.size())
            return &key->second;
        begin = end + 1;
    }
    return nullptr;
}

bool IsRegistryText(std::u16string_view text) noexcept {
    const bool printable = std::ranges::all_of(text, [](char16_t unit) {
        return unit >= 0x20 ? unit != 0x7F : unit == u'\t' || unit == u'\r' || unit == u'\n';
    });
    return printable && FromUtf8(ToUtf8(text)) == text;
}

std::optional<RegistryContent> ParseRegistry(std::string_view text, std::string* wrong) {
    Parser parser;
    // Some editors begin a file with the mark of its encoding.
    if (constexpr std::string_view kMark = "\xEF\xBB\xBF"; text.starts_with(kMark))
        text.remove_prefix(kMark.size());
    for (std::size_t number = 1; !text.empty(); ++number) {
        const std::size_t end = std::min(text.find('\n'), text.size());
        const std::string_view line = text.substr(0, end);
        const char* what = Utf8ToWideStrict(line) ? parser.TakeLine(line) : "this is no UTF-8";
        if (what != nullptr) {
            *wrong = ", line " + std::to_string(number) + ": " + what;
            return std::nullopt;
        }
        text.remove_prefix(std::min(end + 1, text.size()));
    }
    return std::move(parser.content);
}

std::string FormatRegistry(const RegistryContent& content) {
    std::string text(kHead);
    for (const RootName& root : kRoots) {
        for (const auto& [path, values] : content.Keys(root.root)) {
            text += "\n[" + std::string(root.name) + "\\" + ToUtf8(path) + "]\n";
            for (const auto& [name, value] : values) {
                text += name.empty() ? "@" : Quote(name);
                text += '=';
                const auto* const number = std::get_if<std::uint32_t>(&value);
                text += number != nullptr ? std::to_string(*number) : Quote(std::get<std::u16string>(value));
                text += '\n';
            }
        }
    }
    return text;
}

} // namespace platform
