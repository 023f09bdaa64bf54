#include "host/settings/document.h"

#include <charconv>

#include "platform/text.h"

namespace host {
namespace {

// The type keeps the element with the display texts out, which has an attribute of this name as well.
constexpr const char16_t* kPasswords = u"//*[@password and @type='BSTR']";
constexpr const char16_t* kMark = u"stored";
constexpr const char16_t* kKept = u"kept";
// As long for every password: its length is nobody's business.
constexpr std::u16string_view kDots = u"••••••••";

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
