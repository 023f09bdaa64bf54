#include "host/settings/document.h"

#include <algorithm>
#include <map>
#include <optional>
#include <set>

#include "host/users/user_store.h"
#include "platform/text.h"

namespace host {
namespace {

using platform::ComPtr;
using ElementPtr = SettingsDocument::ElementPtr;

constexpr const char16_t* kChildren = u"*";
constexpr const char16_t* kKey = u"KeyXPath";
constexpr const char16_t* kType = u"type";

std::string ItemPath(std::size_t number) {
    return "/config/cams/item[" + std::to_string(number) + "]";
}

// The pieces of text that stand directly in an element, without those that only set its children apart.
std::size_t CountTexts(IConfigElement& element) {
    const bool parent = !SelectElements(element, kChildren).empty();
    ComPtr<IConfigEnum> nodes;
    std::size_t count = 0;
    if (FAILED(element.SelectNodes(u"text()", nodes.Receive())))
        return 0;
    for (ComPtr<IConfigNode> node; nodes->Next(1, node.Receive(), nullptr) == S_OK;) {
        const bool blank = ValueOf(*node).find_first_not_of(u" \t\r\n") == std::u16string::npos;
        count += parent && blank ? 0 : 1;
    }
    return count;
}

class Reading {
public:
    explicit Reading(const SettingsDocument& served)
        : m_served(served), m_pattern(ElementAt(served.Root(), u"addcam/item")) {}

    void Document(const SettingsDocument& document) {
        IConfigElement& root = document.Root();
        if (NameOf(root) != NameOf(m_served.Root()))
            return Add("/*", "foreignRoot", "a settings document has the root \"config\"");
        Parts(root, "/config", m_served.Root());
        if (const ElementPtr host = ElementAt(root, u"host"))
            Value(*host, "/config/host", ElementAt(m_served.Root(), u"host").Get());
        if (const ElementPtr cams = ElementAt(root, u"cams"))
            Cameras(*cams);
    }

    std::vector<SettingsProblem> problems;

private:
    void Add(std::string path, const char* key, std::string text) {
        problems.push_back({std::move(path), key, std::move(text)});
    }

    // The children of an element: each one is known, and none but an "item" comes twice.
    void Parts(IConfigElement& element, const std::string& path, IConfigElement& known) {
        std::set<std::u16string> seen;
        for (const ElementPtr& child : SelectElements(element, kChildren)) {
            const std::u16string name = NameOf(*child);
            const std::string place = path + "/" + platform::ToUtf8(name);
            if (!ElementAt(known, name.c_str()))
                Add(place, "unknownElement", "the server has no such element here");
            else if (!seen.insert(name).second && name != u"item")
                Add(place + "[2]", "standsTwice", "this element stands there twice");
        }
    }

    void Value(IConfigElement& element, const std::string& path, IConfigElement* known) {
        const auto type = known != nullptr ? AttributeOf(*known, kType) : std::nullopt;
        if (AttributeOf(element, kType) != type)
            Add(path, "wrongType", "its type is " + platform::ToUtf8(type.value_or(u"not told")));
        if (CountTexts(element) > 1)
            Add(path, "inPieces", "a value is one text");
        if (known != nullptr)
            Parts(element, path, *known);
    }

    void Cameras(IConfigElement& cams) {
        const auto items = SelectElements(cams, kChildren);
        const ElementPtr known = ElementAt(m_served.Root(), u"cams");
        const auto key = known ? AttributeOf(*known, kKey) : std::nullopt;
        const auto told = AttributeOf(cams, kKey);
        // A list without cameras needs none.
        if (told != key && (told || !items.empty()))
            Add("/config/cams", "wrongKey",
                "the attribute KeyXPath is " + platform::ToUtf8(key.value_or(u"not told")));
        std::size_t number = 0;
        for (const ElementPtr& item : items) {
            if (const std::u16string name = NameOf(*item); name != u"item")
                Add("/config/cams/" + platform::ToUtf8(name), "unknownElement",
                    "the server has no such element here");
            else
                Camera(*item, ItemPath(++number));
        }
    }

    void Camera(IConfigElement& item, const std::string& path) {
        if (!m_pattern)
            return;
        Parts(item, path, *m_pattern);
        for (const ElementPtr& known : SelectElements(*m_pattern, kChildren)) {
            const std::u16string name = NameOf(*known);
            const std::string place = path + "/" + platform::ToUtf8(name);
            if (const ElementPtr value = ElementAt(item, name.c_str()))
                Value(*value, place, known.Get());
            else
                Add(place, "isMissing", "a camera has this value");
        }
        const ElementPtr name = ElementAt(item, u"Name");
        if (!name)
            return;
        const std::u16string text = ValueOf(*name);
        if (text.empty())
            Add(path + "/Name", "mustNotBeEmpty", "a camera has a name");
        else if (!m_names.insert(text).second)
            Add(path + "/Name", "mustBeUnique", "another camera has this name");
    }

    const SettingsDocument& m_served;
    const ElementPtr m_pattern;
    std::set<std::u16string> m_names;
};

// Lists what is stored of a document: each value under its place among the others, cameras by their names.
struct Stored {
    std::string path;
    std::u16string value;
};
using StoredValues = std::map<std::u16string, Stored>;

constexpr std::u16string_view kHostPlace = u"host";

StoredValues ValuesOf(const SettingsDocument& document) {
    StoredValues values;
    if (const ElementPtr host = ElementAt(document.Root(), u"host"))
        values[std::u16string(kHostPlace)] = {"/config/host", ValueOf(*host)};
    std::size_t number = 0;
    for (const ElementPtr& item : SelectElements(document.Root(), u"cams/item")) {
        const std::string path = ItemPath(++number);
        const ElementPtr name = ElementAt(*item, u"Name");
        // No XML has this character, so a name cannot look like the place of another camera's value.
        const std::u16string camera = u"\1" + (name ? ValueOf(*name) : std::u16string()) + u"\1";
        for (const ElementPtr& child : SelectElements(*item, kChildren)) {
            const std::u16string part = NameOf(*child);
            values[camera + part] = {path + "/" + platform::ToUtf8(part), ValueOf(*child)};
        }
    }
    return values;
}

} // namespace

std::vector<SettingsProblem> FindUnreadable(const SettingsDocument& document,
                                            const SettingsDocument& served) {
    Reading reading(served);
    reading.Document(document);
    return std::move(reading.problems);
}

std::vector<SettingsProblem> FindUnusable(const SettingsDocument& document, const SettingsDocument* present,
                                          const std::function<bool(std::string_view)>& isTaken) {
    std::map<std::string, std::string> passwords; // as they are now, by the camera's name
    if (present != nullptr) {
        for (const CameraEntry& camera : present->Cameras())
            passwords[camera.name] = camera.password;
    }
    std::vector<SettingsProblem> problems;
    std::size_t number = 0;
    for (const ElementPtr& item : SelectElements(document.Root(), u"cams/item")) {
        const CameraEntry camera = ReadCamera(*item);
        const std::string path = ItemPath(++number);
        const auto there = passwords.find(camera.name);
        if (there == passwords.end() && !camera.name.empty()) {
            if (const std::string wrong = CheckLogin(camera.name); !wrong.empty())
                problems.push_back({path + "/Name",
                                    camera.name.size() > kMaxLoginBytes ? "loginTooLong" : "loginCharacters",
                                    "a camera's name is its phone's login: " + wrong});
            else if (isTaken(camera.name))
                problems.push_back({path + "/Name", "loginTaken", "a user who is no phone has this login"});
        }
        // Without a password it is stored, and no phone can sign in.
        const bool kept = (there != passwords.end() && there->second == camera.password) ||
                          (present != nullptr && SettingsDocument::IsMarked(*item));
        if (camera.password.empty() || kept)
            continue;
        if (const std::string wrong = CheckPassword(camera.password, UserKind::Phone); !wrong.empty())
            problems.push_back(
                {path + "/Password",
                 camera.password.size() > kMaxPhonePasswordBytes ? "passwordTooLong" : "passwordCharacters",
                 wrong});
    }
    return problems;
}

std::vector<SettingsProblem> FindDifferences(const SettingsDocument& given, const SettingsDocument& taken) {
    const StoredValues wanted = ValuesOf(given);
    const StoredValues got = ValuesOf(taken);
    std::vector<SettingsProblem> problems;
    for (const auto& [place, stored] : wanted) {
        const auto found = got.find(place);
        if (found == got.end())
            problems.push_back({stored.path, "notTaken", "the server does not take this"});
        else if (found->second.value != stored.value)
            problems.push_back({stored.path, "notTaken", "the server takes another value"});
    }
    const bool hasCameras = ElementAt(given.Root(), u"cams") != nullptr;
    for (const auto& [place, stored] : got) {
        const bool asked = place == kHostPlace ? wanted.contains(place) : hasCameras;
        if (asked && !wanted.contains(place))
            problems.push_back(
                {"/config/cams", "notTaken", "the server keeps a camera that does not stand there"});
    }
    return problems;
}

} // namespace host
