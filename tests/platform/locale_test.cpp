#include "platform/locale.h"

#include <gtest/gtest.h>

namespace platform {
namespace {

TEST(Locale, NamesTheLanguagesOfTheComponent) {
    struct Case {
        std::uint32_t id;
        std::u16string_view abbreviated;
        std::string_view code;
    };
    for (const Case& c : {Case{0, u"ENU", "en"},
                          {1033, u"ENU", "en"},
                          {1034, u"ESP", "es"},
                          {1036, u"FRA", "fr"},
                          {1049, u"RUS", "ru"},
                          {1062, u"LVI", "lv"},
                          {1068, u"AZE", "az"},
                          {1079, u"GE", "ka"},
                          {3082, u"ESN", "es"},
                          {0xFFFF, u"", ""},
                          {0x10409, u"", ""}}) {
        EXPECT_EQ(AbbreviatedLanguageName(c.id), c.abbreviated) << c.id;
        EXPECT_EQ(LanguageCode(c.id), c.code) << c.id;
        EXPECT_EQ(LanguageName(c.id).empty(), c.code.empty()) << c.id;
    }
}

} // namespace
} // namespace platform
