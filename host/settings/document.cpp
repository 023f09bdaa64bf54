#include "host/settings/document.h"

#include <charconv>
#include <map>
#include <stdexcept>

#include "platform/text.h"

namespace host {
namespace {

// The type keeps the element with the display texts out, which has an attribute of this name as well.
constexpr const char16_t* kPasswords = u"//*[@password and @type='BSTR']";
constexpr const char16_t* kMark = u"stored";
constexpr const char16_t* kKept = u"kept";
// As long for every password: its length is nobody's business.
constexpr std::u16string_view kDots = u"••••••••";

// A camera as a copy of what stands in `addcam`, at the end of the list; null where there is no such thing.
SettingsDocument::ElementPtr CopyOfPattern(IConfigElement& root) {
    const auto list = ElementAt(root, u"cams");
    const auto pattern = ElementAt(root, u"addcam/item");
    SettingsDocument::ElementPtr copy;
    const bool made = list && pattern && SUCCEEDED(pattern->Clone(copy.Receive())) &&
                      SUCCEEDED(list->AppendChild(copy.Get(), 0));
    return made ? copy : nullptr;
}

bool SetValues(IConfigElement& item, const CameraEntry& camera) {
    const auto name = ElementAt(item, u"Name");
    const auto type = ElementAt(item, u"Type");
    const auto password = ElementAt(item, u"Password");
    if (!name || !type || !password)
        return false;
    kit::SetValue(*name, platform::FromUtf8(camera.name));
    kit::SetValue(*type, platform::FromUtf8(camera.type));
    kit::SetValue(*password, platform::FromUtf8(camera.password));
    return true;
}

} // namespace

std::optional<SettingsDocument> SettingsDocument::Read(const std::string& path) {
    auto document = kit::SettingsDocument::Read(path);
    return document ? std::optional(SettingsDocument(*std::move(document))) : std::nullopt;
}

std::optional<SettingsDocument> SettingsDocument::Parse(std::u16string_view text) {
    auto document = kit::SettingsDocument::Parse(text);
    return document ? std::optional(SettingsDocument(*std::move(document))) : std::nullopt;
}

std::vector<std::u16string> SettingsDocument::Passwords() const {
    std::vector<std::u16string> passwords;
    for (const ElementPtr& element : SelectElements(Root(), kPasswords))
        passwords.push_back(ValueOf(*element));
    return passwords;
}

void SettingsDocument::ConcealPasswords() {
    std::size_t number = 0;
    for (const ElementPtr& element : SelectElements(Root(), kPasswords)) {
        if (!ValueOf(*element).empty()) {
            const std::u16string mark = platform::FromUtf8(std::to_string(number));
            kit::SetAttribute(*element, kMark, mark);
            kit::SetValue(*element, kDots);
        }
        ++number;
    }
}

bool SettingsDocument::RestorePasswords(const std::vector<std::u16string>& passwords) {
    for (const ElementPtr& element : SelectElements(Root(), kPasswords)) {
        const auto mark = AttributeOf(*element, kMark);
        if (!mark)
            continue;
        const std::string digits = platform::ToUtf8(*mark);
        std::size_t number = 0;
        const auto [end, error] = std::from_chars(digits.data(), digits.data() + digits.size(), number);
        if (error != std::errc{} || end != digits.data() + digits.size() || number >= passwords.size())
            return false;
        kit::SetValue(*element, passwords[number]);
    }
    return true;
}

std::vector<SettingsProblem>
SettingsDocument::Apply(std::span<const CameraChange> changes,
                        const std::function<std::string(const CameraChange& change, bool isNew)>& check) {
    struct Item {
        ElementPtr element;
        CameraEntry camera;
    };
    // Looked up once: a batch may be about thousands of cameras.
    std::map<std::string, Item, std::less<>> items;
    for (ElementPtr& element : SelectElements(Root(), u"cams/item")) {
        CameraEntry camera = ReadCamera(*element);
        const std::string name = camera.name;
        items.try_emplace(name, Item{std::move(element), std::move(camera)});
    }
    std::vector<SettingsProblem> problems;
    for (std::size_t i = 0; i < changes.size(); ++i) {
        const CameraChange& change = changes[i];
        auto found = items.find(change.name);
        const bool isNew = found == items.end();
        std::string wrong = change.remove && isNew ? "there is no such camera" : check(change, isNew);
        if (!wrong.empty()) {
            problems.push_back({"/changes/" + std::to_string(i), change.remove ? "isMissing" : "notTaken",
                                std::move(wrong)});
            continue;
        }
        if (change.remove) {
            const auto& [element, camera] = found->second;
            if (element ? FAILED(element->Remove()) : !RemoveIfSame(camera))
                throw std::runtime_error("the settings document refuses to give an element away");
            items.erase(found);
            continue;
        }
        if (isNew) {
            CameraEntry fresh{change.name, std::string(kCameraTypes[0]), {}};
            found = items.emplace(change.name, Item{CopyOfPattern(Root()), std::move(fresh)}).first;
        }
        CameraEntry& camera = found->second.camera;
        camera.type = change.type.value_or(camera.type);
        camera.password = change.password.value_or(camera.password);
        // What does not look like the pattern is put together as a single camera is.
        if (!found->second.element || !SetValues(*found->second.element, camera))
            (void)Put(camera);
    }
    return problems;
}

bool SettingsDocument::IsMarked(IConfigElement& item) {
    const ElementPtr password = ElementAt(item, u"Password");
    return password && AttributeOf(*password, kMark);
}

void SettingsDocument::Mark(const std::vector<SettingsProblem>& problems) {
    for (const SettingsProblem& problem : problems) {
        if (const ElementPtr element = ElementAt(Root(), platform::FromUtf8(problem.path).c_str()))
            kit::SetAttribute(*element, kKept, platform::FromUtf8(problem.key));
    }
}

} // namespace host
