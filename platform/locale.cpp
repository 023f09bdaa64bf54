#include "platform/text.h"

#include <algorithm>
#include <iterator>

namespace platform {

namespace {

struct Language {
    std::uint16_t id;
    std::u16string_view abbreviated;
    std::string_view code;
    std::string_view name;
};

// The default for the language 0 comes first.
//
// Georgian is "GE", as its language file has it, where the system that this was made for says KAT.
constexpr Language kLanguages[] = {
    {0x0409, u"ENU", "en", "English"},    {0x0407, u"DEU", "de", "Deutsch"},
    {0x0809, u"ENG", "en", "English"},    {0x040A, u"ESP", "es", "Español"},
    {0x0C0A, u"ESN", "es", "Español"},    {0x040C, u"FRA", "fr", "Français"},
    {0x0410, u"ITA", "it", "Italiano"},   {0x0419, u"RUS", "ru", "Русский"},
    {0x0415, u"PLK", "pl", "Polski"},     {0x041F, u"TRK", "tr", "Türkçe"},
    {0x0422, u"UKR", "uk", "Українська"}, {0x0423, u"BEL", "be", "Беларуская"},
    {0x0425, u"ETI", "et", "Eesti"},      {0x0426, u"LVI", "lv", "Latviešu"},
    {0x0427, u"LTH", "lt", "Lietuvių"},   {0x042C, u"AZE", "az", "Azərbaycanca"},
    {0x042B, u"HYE", "hy", "Հայերեն"},    {0x0437, u"GE", "ka", "ქართული"},
    {0x0416, u"PTB", "pt", "Português"},  {0x0413, u"NLD", "nl", "Nederlands"},
};

constexpr Language kUnknown{};

constinit thread_local std::uint32_t t_locale = kLocaleSystemDefault;

const Language& Find(std::uint32_t id) noexcept {
    if (id == 0)
        return kLanguages[0];
    const auto* const found = std::ranges::find(kLanguages, id, &Language::id);
    return found == std::end(kLanguages) ? kUnknown : *found;
}

} // namespace

std::u16string_view AbbreviatedLanguageName(std::uint32_t languageId) noexcept {
    return Find(languageId).abbreviated;
}

std::string_view LanguageCode(std::uint32_t languageId) noexcept {
    return Find(languageId).code;
}

std::string_view LanguageName(std::uint32_t languageId) noexcept {
    return Find(languageId).name;
}

std::uint32_t ThreadLocale() noexcept {
    return t_locale;
}

void SetThreadLocale(std::uint32_t locale) noexcept {
    t_locale = locale;
}

} // namespace platform
