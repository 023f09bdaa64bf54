#include "Common/Configuration/config/DocumentTexts.h"

#include <array>
#include <cstdint>

#include "Common/Utils/LocalizeEx.h"
#include "platform/resources.h"

namespace {

constexpr char16_t kSchemaType[] = u"XML";
constexpr std::uint16_t kSchemaNumber = 203;

struct SLocalString {
    const char16_t* szAttribute;
    std::uint16_t nIdentifier; // in the module's string table
};

// In the order in which they are written.
constexpr SLocalString kLocalStrings[] = {
    {u"name", 107},
    {u"type", 104},
    {u"login", 105},
    {u"password", 106},
    {u"passworderror", 109},
    {u"addcam", 108},
    {u"cams", 101},
    {u"host", 102},
    {u"devices", 123},
    {u"VideoOnMobile", 124},
    {u"TranslationToServer", 125},
    {u"MidletName", 126},
    {u"download", 127},
};

} // namespace

platform::Bstr CameraSchemaText() {
    const auto oResource = platform::FindResource(ThisModule(), kSchemaType, kSchemaNumber);
    return platform::Bstr(oResource ? platform::ToWide(oResource->Text(), platform::kCodePageThread) : u"");
}

void WriteLocalStrings(const CXmlConfigTree& oTree) {
    std::array<platform::Bstr, std::size(kLocalStrings)> aTexts;
    if (oTree.IsStore()) {
        for (std::size_t n = 0; n < aTexts.size(); ++n)
            aTexts[n] = platform::LoadResourceString(kLocalStrings[n].nIdentifier);
    }
    platform::Bstr bstrHidden(u"true");
    const CXmlConfigTree oLocal = oTree.Descend({u"local"});
    oLocal.Attr({u"hidden", &bstrHidden});
    for (std::size_t n = 0; n < aTexts.size(); ++n)
        oLocal.Attr({kLocalStrings[n].szAttribute, &aTexts[n]});
    oLocal.End();
}
