// The host's own settings as JSON: the document's groups are objects, its list of cameras is one by their
// names.
#include <cctype>
#include <charconv>

#include "host/preferences/document.h"
#include "host/site/api/message.h"
#include "kit/settings/document.h"
#include "platform/text.h"

namespace host {
namespace {

using Tree = kit::SettingsDocument;
using NodePtr = Tree::ElementPtr;

// Without a condition, a change is made to what is there: again where somebody else was faster.
constexpr int kMostTries = 5;
constexpr const char* kHasPrefix = "has";

std::string NameAt(IConfigElement& element) {
    return platform::ToUtf8(kit::NameOf(element));
}

std::string OwnTextOf(IConfigElement& element) {
    return platform::ToUtf8(kit::ValueOf(element));
}

std::string TypeOf(IConfigElement& element) {
    return platform::ToUtf8(kit::AttributeOf(element, u"type").value_or(u""));
}

bool IsSecret(IConfigElement& element) {
    return kit::AttributeOf(element, u"password").has_value();
}

// "password" is told of as "hasPassword".
std::string HasName(std::string name) {
    name.front() = static_cast<char>(std::toupper(static_cast<unsigned char>(name.front())));
    return kHasPrefix + name;
}

ApiJson WordsIn(std::string_view text) {
    ApiJson words = ApiJson::array();
    while (!text.empty()) {
        const auto end = text.find(' ');
        words.push_back(text.substr(0, end));
        text.remove_prefix(end == std::string_view::npos ? text.size() : end + 1);
    }
    return words;
}

ApiJson ValueAsJson(IConfigElement& element) {
    const std::string type = TypeOf(element);
    std::string text = OwnTextOf(element);
    if (type == "number") {
        std::uint64_t number = 0;
        (void)std::from_chars(text.data(), text.data() + text.size(), number);
        return number;
    }
    if (type == "yesno")
        return text == "yes";
    return type == "set" ? WordsIn(text) : ApiJson(std::move(text));
}

std::vector<NodePtr> ShownIn(IConfigElement& element) {
    std::vector<NodePtr> shown;
    for (NodePtr& child : kit::SelectElements(element, u"*")) {
        if (!kit::AttributeOf(*child, u"hidden"))
            shown.push_back(std::move(child));
    }
    return shown;
}

bool IsCameraList(IConfigElement& element) {
    return kit::AttributeOf(element, u"KeyXPath").has_value();
}

std::string CameraOf(IConfigElement& item) {
    const NodePtr name = kit::ElementAt(item, u"name");
    return name ? OwnTextOf(*name) : std::string();
}

ApiJson GroupAsJson(IConfigElement& element) {
    ApiJson json = ApiJson::object();
    for (const NodePtr& child : ShownIn(element)) {
        const std::string name = IsCameraList(element) ? CameraOf(*child) : NameAt(*child);
        if (IsSecret(*child))
            json[HasName(name)] = !OwnTextOf(*child).empty();
        else
            json[name] = TypeOf(*child).empty() ? GroupAsJson(*child) : ValueAsJson(*child);
    }
    return json;
}

// Brings what stands in a body into the document.
class Entering {
public:
    void Group(IConfigElement& element, const ApiJson& json, const std::string& pointer) {
        if (!json.is_object())
            return Note(pointer, "this is an object");
        const auto children = ShownIn(element);
        for (const auto& [name, value] : json.items()) {
            const std::string place = pointer + "/" + Escaped(name);
            const NodePtr child = Find(children, IsCameraList(element), name);
            if (child && !IsSecret(*child) && TypeOf(*child).empty())
                Group(*child, value, place);
            else if (child)
                Value(*child, value, place);
            else if (!SaysWhatIsSo(children, name, value))
                Note(place, "there is no such member, or it is only told");
        }
    }

    std::vector<ApiProblem> problems;

    // Of a name in a pointer (RFC 6901).
    static std::string Escaped(std::string_view name) {
        std::string escaped;
        for (const char c : name)
            escaped += c == '~' ? "~0" : c == '/' ? "~1" : std::string(1, c);
        return escaped;
    }

private:
    static NodePtr Find(const std::vector<NodePtr>& children, bool cameras, const std::string& name) {
        for (const NodePtr& child : children) {
            if (name == (cameras ? CameraOf(*child) : NameAt(*child)))
                return child;
        }
        return nullptr;
    }
    // Who sends back what he was told means no change by it.
    static bool SaysWhatIsSo(const std::vector<NodePtr>& children, const std::string& name,
                             const ApiJson& value) {
        for (const NodePtr& child : children) {
            if (IsSecret(*child) && name == HasName(NameAt(*child)))
                return value == ApiJson(!OwnTextOf(*child).empty());
        }
        return false;
    }
    void Value(IConfigElement& element, const ApiJson& value, const std::string& pointer) {
        const std::string type = TypeOf(element);
        std::string text;
        if (type == "number" && value.is_number_unsigned()) {
            text = std::to_string(value.get<std::uint64_t>());
        } else if (type == "yesno" && value.is_boolean()) {
            text = value.get<bool>() ? "yes" : "no";
        } else if (type == "set" && value.is_array()) {
            for (const ApiJson& word : value) {
                if (!word.is_string() || word.get<std::string>().find(' ') != std::string::npos)
                    return Note(pointer, "this is a list of words");
                text += (text.empty() ? "" : " ") + word.get<std::string>();
            }
        } else if (value.is_string() && type != "number" && type != "yesno" && type != "set") {
            text = value.get<std::string>();
        } else {
            return Note(pointer, type == "number"  ? "this is a whole number"
                                 : type == "yesno" ? "this is true or false"
                                 : type == "set"   ? "this is a list of words"
                                                   : "this is a text");
        }
        try {
            kit::SetValue(element, platform::FromUtf8(text));
        } catch (const std::runtime_error&) {
            return Note(pointer, "this has no control characters");
        }
        if (IsSecret(element))
            kit::SetAttribute(element, u"stored", u"");
    }
    void Note(const std::string& pointer, std::string text) {
        problems.push_back({pointer, std::move(text)});
    }
};

// "/preferences/cameras/item[2]/days" as "/cameras/yard/days".
std::string PointerOfPath(const Tree& document, std::string_view path) {
    const auto root = path.find('/', 1);
    path.remove_prefix(root == std::string_view::npos ? path.size() : root);
    constexpr std::string_view kItem = "/cameras/item[";
    if (!path.starts_with(kItem))
        return std::string(path);
    const auto end = path.find('/', kItem.size());
    const std::string item(path.substr(1, end == std::string_view::npos ? end : end - 1));
    const NodePtr element = kit::ElementAt(document.Root(), platform::FromUtf8(item).c_str());
    return "/cameras/" + Entering::Escaped(element ? CameraOf(*element) : "") +
           std::string(end == std::string_view::npos ? std::string_view() : path.substr(end));
}

Tree ParsedReading(const PreferenceReading& reading) {
    auto document = Tree::Parse(platform::FromUtf8(reading.xml));
    if (!document)
        throw std::logic_error("the preferences are no document");
    return *std::move(document);
}

} // namespace

Answer ApiPages::GetPreferences(const ApiCall& call) const {
    const PreferenceReading reading = preferences.Read();
    return ApiAnswer(call.request, GroupAsJson(ParsedReading(reading).Root()), reading.version);
}

Answer ApiPages::PutPreferences(const ApiCall& call) const {
    using enum PreferenceChange::Result;
    const ApiBody body(call);
    if (const auto refused = body.Refused())
        return *refused;
    const auto [version, unmet] = ReadCondition(call.request, true, preferences.Read().version);
    if (unmet)
        return *unmet;
    for (int i = 0; i < kMostTries; ++i) {
        const PreferenceReading reading = preferences.Read();
        const Tree document = ParsedReading(reading);
        Entering entering;
        entering.Group(document.Root(), body.Json(), "");
        if (!entering.problems.empty())
            return ApiUnsound(entering.problems);
        PreferenceChange change =
            preferences.Write(platform::ToUtf8(document.Text()), version.empty() ? reading.version : version);
        if (change.result == Outdated && version.empty())
            continue;
        if (change.result == Outdated)
            return ApiOutdated();
        if (change.result == Unshared)
            return ApiUnshared();
        if (change.result != Done && change.result != NotWritten) {
            std::vector<ApiProblem> problems;
            for (SettingsProblem& problem : change.problems)
                problems.push_back({PointerOfPath(document, problem.path), std::move(problem.text)});
            return ApiUnsound(problems);
        }
        if (!change.same)
            TellChange(events, EventKind::SettingsChanged, call.request, call.signIn, "preferences changed");
        Answer answer = Answer::Json(200, GroupAsJson(ParsedReading(change.now).Root()));
        answer.headers["ETag"] = change.now.version;
        if (change.result == NotWritten)
            answer.headers["X-Settings-Written"] = "no";
        return answer;
    }
    return Answer::Text(503, "Others change the preferences all the time.");
}

} // namespace host
