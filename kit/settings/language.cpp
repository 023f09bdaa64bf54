#include "kit/settings/language.h"

#include <optional>

#include "platform/registry.h"
#include "platform/resources.h"
#include "platform/text.h"

namespace kit {
namespace {

// Where the component looks for its language: an identifier's ten low bits, and the six above them.
constexpr char16_t kLanguageKey[] = uR"(SOFTWARE\Norvane\Tessaron)";
constexpr char16_t kLanguage[] = u"lang";
constexpr char16_t kSublanguage[] = u"sublang";
constexpr unsigned kSublanguageShift = 10;
constexpr std::uint32_t kLanguageMask = (1U << kSublanguageShift) - 1;

// A block of the component's texts, which is there in every language.
constexpr std::uint16_t kTextBlock = 7;

std::vector<std::uint16_t> Identifiers() {
    return platform::ResourceLanguages(platform::kResourceTypeString, kTextBlock);
}

std::optional<std::uint32_t> ReadNumber(std::u16string_view name) {
    const auto value = platform::QueryRegistryValue(platform::RegistryRoot::LocalMachine, kLanguageKey, name);
    const auto* const number = value ? std::get_if<std::uint32_t>(&*value) : nullptr;
    return number == nullptr ? std::nullopt : std::optional(*number);
}

} // namespace

std::vector<Language> Languages() {
    std::vector<Language> languages;
    for (const std::uint16_t id : Identifiers()) {
        // A language that was added and that the system has no code for is called by its number.
        const std::string code(platform::LanguageCode(id));
        const std::string name(platform::LanguageName(id));
        languages.push_back(
            {code.empty() ? std::to_string(id) : code, name.empty() ? std::to_string(id) : name});
    }
    return languages;
}

std::string LanguageCodes() {
    std::string codes;
    for (const Language& language : Languages())
        codes += (codes.empty() ? "" : ", ") + language.code;
    return codes;
}

std::string ConfiguredLanguage() {
    const auto language = ReadNumber(kLanguage);
    const auto sublanguage = ReadNumber(kSublanguage);
    const auto identifiers = Identifiers();
    const auto languages = Languages();
    for (std::size_t i = 0; language && sublanguage && i < identifiers.size(); ++i) {
        if (identifiers[i] == (*sublanguage << kSublanguageShift | *language))
            return languages[i].code;
    }
    return {};
}

HRESULT SetConfiguredLanguage(std::string_view code) {
    const auto identifiers = Identifiers();
    const auto languages = Languages();
    for (std::size_t i = 0; i < identifiers.size(); ++i) {
        if (languages[i].code != code)
            continue;
        const platform::NamedRegistryValue values[] = {
            {kLanguage, identifiers[i] & kLanguageMask},
            {kSublanguage, static_cast<std::uint32_t>(identifiers[i]) >> kSublanguageShift}};
        return platform::SetRegistryValues(platform::RegistryRoot::LocalMachine, kLanguageKey, values);
    }
    return E_INVALIDARG;
}

void ApplyConfiguredLanguage() {
    const auto language = ReadNumber(kLanguage);
    const auto sublanguage = ReadNumber(kSublanguage);
    if (language && sublanguage)
        (void)platform::SetSystemCodePage(
            platform::CodePageOfLanguage(*sublanguage << kSublanguageShift | *language));
}

} // namespace kit
