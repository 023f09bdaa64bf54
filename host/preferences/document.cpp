#include "host/preferences/document.h"

#include <algorithm>
#include <charconv>
#include <limits>
#include <map>
#include <set>
#include <stdexcept>

#include "host/preferences/values.h"
#include "kit/settings/document.h"
#include "platform/text.h"

namespace host {
namespace {

using Tree = kit::SettingsDocument;
using NodePtr = Tree::ElementPtr;

constexpr const char16_t* kAllChildren = u"*";
constexpr const char16_t* kCameraItems = u"cameras/item";
constexpr const char16_t* kCameraName = u"name";
constexpr const char16_t* kSecretAttribute = u"password";
constexpr const char16_t* kSecretMark = u"stored";
// As long for every password: its length is nobody's business.
constexpr std::u16string_view kSecretDots = u"••••••••";

Tree ParsedPattern() {
    auto pattern = Tree::Parse(PreferencePattern());
    if (!pattern)
        throw std::logic_error("the pattern of the preferences is no document");
    return *std::move(pattern);
}

NodePtr NeededAt(IConfigElement& element, const char16_t* path) {
    NodePtr found = kit::ElementAt(element, path);
    if (!found)
        throw std::logic_error("the pattern of the preferences lacks " + platform::ToUtf8(path));
    return found;
}

std::string TextAt(IConfigElement& element, const char16_t* name) {
    const NodePtr found = kit::ElementAt(element, name);
    return found ? platform::ToUtf8(kit::ValueOf(*found)) : std::string();
}

// --- Into a document ---

class Writing {
public:
    Writing(IConfigElement& root, Secrets secrets) : m_root(root), m_secrets(secrets) {}

    template <class Value>
    void operator()(const char16_t* path, const Value& value) const {
        const NodePtr element = NeededAt(m_root, path);
        const std::string text = TextOfValue(value);
        if (m_secrets == Secrets::Concealed && !text.empty() &&
            kit::AttributeOf(*element, kSecretAttribute)) {
            kit::SetAttribute(*element, kSecretMark, u"0");
            kit::SetValue(*element, kSecretDots);
        } else {
            kit::SetValue(*element, platform::FromUtf8(text));
        }
    }

private:
    IConfigElement& m_root;
    const Secrets m_secrets;
};

// --- Out of one ---

// What the pattern says of a value.
struct Rules {
    std::optional<std::u16string> type;
    bool secret = false;
    std::uint64_t least = 0;
    std::uint64_t most = std::numeric_limits<std::uint64_t>::max();
    std::size_t longest = std::numeric_limits<std::size_t>::max();
    std::vector<std::string> choices;
};

template <class Number>
void ReadLimit(IConfigElement& element, const char16_t* name, Number& limit) {
    const auto text = kit::AttributeOf(element, name);
    const std::string digits = text ? platform::ToUtf8(*text) : std::string();
    (void)std::from_chars(digits.data(), digits.data() + digits.size(), limit);
}

Rules RulesOf(IConfigElement& element) {
    Rules rules;
    rules.type = kit::AttributeOf(element, u"type");
    rules.secret = kit::AttributeOf(element, kSecretAttribute).has_value();
    ReadLimit(element, u"min", rules.least);
    ReadLimit(element, u"max", rules.most);
    ReadLimit(element, u"longest", rules.longest);
    if (const auto lookup = kit::AttributeOf(element, u"lookup")) {
        for (const NodePtr& choice : kit::SelectElements(element, lookup->c_str()))
            rules.choices.push_back(platform::ToUtf8(kit::ValueOf(*choice)));
    }
    return rules;
}

// The same by path, looked up once: a thousand cameras have the same values.
class RuleBook {
public:
    explicit RuleBook(IConfigElement& pattern) : m_pattern(pattern) {}
    const Rules& At(const char16_t* path) {
        const auto known = m_rules.find(path);
        return known != m_rules.end()
                   ? known->second
                   : m_rules.emplace(path, RulesOf(*NeededAt(m_pattern, path))).first->second;
    }

private:
    IConfigElement& m_pattern;
    std::map<std::u16string, Rules, std::less<>> m_rules;
};

struct Wrong {
    const char* key;
    std::string text;
};

template <class Value>
std::optional<Wrong> WrongWith(const Value&, const Rules&) {
    return std::nullopt;
}
std::optional<Wrong> WrongWithNumber(std::uint64_t value, const Rules& rules) {
    if (value >= rules.least && value <= rules.most)
        return std::nullopt;
    return Wrong{"outOfRange",
                 "this is from " + std::to_string(rules.least) + " to " + std::to_string(rules.most)};
}
template <>
std::optional<Wrong> WrongWith(const std::uint64_t& value, const Rules& rules) {
    return WrongWithNumber(value, rules);
}
template <>
std::optional<Wrong> WrongWith(const int& value, const Rules& rules) {
    // A negative one becomes larger than any limit.
    return WrongWithNumber(static_cast<std::uint64_t>(value), rules);
}
template <>
std::optional<Wrong> WrongWith(const std::string& value, const Rules& rules) {
    if (value.size() > rules.longest)
        return Wrong{"textTooLong", "this has " + std::to_string(rules.longest) + " bytes at most"};
    if (std::ranges::any_of(value, [](char c) { return static_cast<unsigned char>(c) < ' ' || c == '\x7f'; }))
        return Wrong{"notAllowed", "this has no control characters"};
    return std::nullopt;
}
template <>
std::optional<Wrong> WrongWith(const WordSet& value, const Rules& rules) {
    for (const std::string& word : value) {
        if (std::ranges::find(rules.choices, word) == rules.choices.end())
            return Wrong{"notAChoice", "there is no choice of a name that stands there"};
    }
    return std::nullopt;
}

// What a text can be at all, in words.
Wrong Meaningless(int) {
    return {"notANumber", "this is a whole number"};
}
Wrong Meaningless(std::uint64_t) {
    return {"notANumber", "this is a whole number"};
}
Wrong Meaningless(bool) {
    return {"notAChoice", "this is yes or no"};
}
Wrong Meaningless(RecordMode) {
    return {"notAChoice", "this is off, always or motion"};
}
Wrong Meaningless(const CellMask&) {
    return {"notAllowed", "this is empty, or " + std::to_string(CellMask::kDigits) + " hexadecimal digits"};
}
template <class Value>
Wrong Meaningless(const Value&) {
    return {"notAllowed", "this cannot be read"};
}

// Whether a secret is somebody's text, and not the mark of what is there; an empty mark is none.
bool IsEntered(IConfigElement& secret) {
    return kit::AttributeOf(secret, kSecretMark).value_or(u"").empty();
}

// Takes what a document has of the values below an element.
class ReadingBelow {
public:
    ReadingBelow(IConfigElement& element, RuleBook& rules, std::string path,
                 std::vector<SettingsProblem>& problems)
        : m_element(element), m_rules(rules), m_path(std::move(path)), m_problems(problems) {}

    template <class Value>
    void operator()(const char16_t* path, Value& value) const {
        const NodePtr element = kit::ElementAt(m_element, path);
        if (!element)
            return; // stays as it is
        const Rules& rules = m_rules.At(path);
        if (rules.secret && !IsEntered(*element))
            return;
        const std::string place = m_path + "/" + platform::ToUtf8(path);
        if (kit::AttributeOf(*element, u"type") != rules.type)
            return Add(place, {"wrongType", "its type is another one"});
        Value taken = value;
        if (!ValueFromText(OwnText(*element), taken))
            return Add(place, Meaningless(value));
        if (auto wrong = WrongWith(taken, rules))
            return Add(place, *std::move(wrong));
        value = std::move(taken);
    }

private:
    void Add(const std::string& path, Wrong wrong) const {
        m_problems.push_back({path, wrong.key, std::move(wrong.text)});
    }
    // Where choices stand in it, blanks that set them apart are no part of it.
    static std::string OwnText(IConfigElement& element) {
        std::string text = platform::ToUtf8(kit::ValueOf(element));
        if (kit::SelectElements(element, kAllChildren).empty())
            return text;
        constexpr std::string_view kBlank = " \t\r\n";
        const auto first = text.find_first_not_of(kBlank);
        return first == std::string::npos ? std::string()
                                          : text.substr(first, text.find_last_not_of(kBlank) - first + 1);
    }

    IConfigElement& m_element;
    RuleBook& m_rules;
    const std::string m_path;
    std::vector<SettingsProblem>& m_problems;
};

// Elements that the pattern does not have, and such as stand there twice. A camera's item stands for all.
void FindStrangers(IConfigElement& element, IConfigElement& pattern, const std::string& path,
                   std::vector<SettingsProblem>& problems) {
    std::set<std::u16string> seen;
    for (const NodePtr& child : kit::SelectElements(element, kAllChildren)) {
        const std::u16string name = kit::NameOf(*child);
        const std::string place = path + "/" + platform::ToUtf8(name);
        const NodePtr known = kit::ElementAt(pattern, name.c_str());
        if (!known)
            problems.push_back({place, "unknownElement", "the server has no such element here"});
        else if (!seen.insert(name).second && name != u"item")
            problems.push_back({place + "[2]", "standsTwice", "this element stands there twice"});
        else if (!kit::AttributeOf(*known, u"type"))
            FindStrangers(*child, *known, place, problems);
    }
}

} // namespace

std::string DocumentOf(const Preferences& preferences, const std::vector<std::string>& cameras,
                       Secrets secrets) {
    const Tree document = ParsedPattern();
    IConfigElement& root = document.Root();
    VisitGeneral(preferences, Writing(root, secrets));
    const NodePtr item = NeededAt(root, kCameraItems);
    const NodePtr list = NeededAt(root, u"cameras");
    for (const std::string& camera : cameras) {
        NodePtr copy;
        if (FAILED(item->Clone(copy.Receive())) || FAILED(list->AppendChild(copy.Get(), 0)))
            throw std::runtime_error("the document of the preferences refuses to take a camera");
        kit::SetValue(*NeededAt(*copy, kCameraName), platform::FromUtf8(camera));
        VisitCamera(preferences.Of(camera), Writing(*copy, secrets));
    }
    if (FAILED(item->Remove()))
        throw std::runtime_error("the document of the preferences refuses to give an element away");
    return platform::ToUtf8(document.Text());
}

std::optional<ReadPreferences> PreferencesIn(std::string_view xml, const Preferences& present,
                                             bool anyCamera) {
    const auto wide = platform::Utf8ToWideStrict(xml);
    const auto document = wide ? Tree::Parse(*wide) : std::nullopt;
    const Tree pattern = ParsedPattern();
    if (!document || kit::NameOf(document->Root()) != kit::NameOf(pattern.Root()))
        return std::nullopt;
    const std::string root = "/" + platform::ToUtf8(kit::NameOf(document->Root()));
    ReadPreferences read{present, {}};
    FindStrangers(document->Root(), pattern.Root(), root, read.problems);
    RuleBook general(pattern.Root());
    VisitGeneral(read.preferences, ReadingBelow(document->Root(), general, root, read.problems));
    const NodePtr item = NeededAt(pattern.Root(), kCameraItems);
    RuleBook ofCamera(*item);
    std::set<std::string, std::less<>> seen;
    std::size_t number = 0;
    for (const NodePtr& element : kit::SelectElements(document->Root(), kCameraItems)) {
        const std::string path = root + "/cameras/item[" + std::to_string(++number) + "]";
        const std::string name = TextAt(*element, kCameraName);
        const auto known = read.preferences.cameras.find(name);
        if (name.empty() || (known == read.preferences.cameras.end() && !anyCamera))
            read.problems.push_back({path + "/name", "unknownElement", "there is no camera of that name"});
        else if (!seen.insert(name).second)
            read.problems.push_back({path + "/name", "mustBeUnique", "another entry is of this camera"});
        else
            VisitCamera(read.preferences.cameras[name],
                        ReadingBelow(*element, ofCamera, path, read.problems));
    }
    const NodePtr password = kit::ElementAt(document->Root(), u"notices/mqtt/password");
    FindUnfit(read.preferences, present, password && IsEntered(*password), root, read.problems);
    return read;
}

std::vector<std::string> ChoicesAt(const char16_t* path) {
    const Tree pattern = ParsedPattern();
    return RulesOf(*NeededAt(pattern.Root(), path)).choices;
}

} // namespace host
