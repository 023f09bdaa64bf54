// What a phone's browser shows: the mobile page, and the style sheet that makes forms of it.

#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"
#include "Common/Configuration/config/DocumentTexts.h"
#include "Common/Utils/LocalizeEx.h"
#include "platform/resources.h"
#include "platform/text.h"
#include "runtime/trace/Trace.h"
#include "server/UploadServer.h"

using XmlConfig::CXmlConfig;

namespace {

constexpr char16_t kStyleSheetType[] = u"XML";
constexpr std::uint16_t kStyleSheet = 207;
constexpr std::uint16_t kViewText = 103;
constexpr std::uint16_t kUploadText = 110;

// Makes an element for whose presence the style sheet tests. Its text is the module's own and goes in as it
// is.
std::u16string Entry(std::u16string_view name, std::uint16_t nText) {
    const platform::Bstr bstrText = platform::LoadResourceString(nText);
    return u"\t<" + std::u16string(name) + u">" + std::u16string(bstrText.View()) + u"</" +
           std::u16string(name) + u">\n";
}

} // namespace

HRESULT CUploadServer::GetStyleSheet(BSTR* body, BSTR* head) {
    const auto oSheet = platform::FindResource(ThisModule(), kStyleSheetType, kStyleSheet);
    TRASSDO(oSheet, return E_FAIL);
    StoreContent(platform::Bstr::FromBytes(oSheet->Text()), platform::Bstr(kTextHead), body, head);
    return S_OK;
}

HRESULT CUploadServer::GetMobilePage(BSTR* body, BSTR* head) {
    const platform::Bstr bstrTemplate(XmlConfig::kRootTemplate);
    CXmlConfig oXmlConfig;
    HRESULT hr = oXmlConfig.Load(nullptr, bstrTemplate);
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);
    WriteLocalStrings(CXmlConfigTree(oXmlConfig.Root(), true, true));
    const platform::ComPtr<IConfigElement> spLocal =
        XmlConfig::SelectOrCreate(oXmlConfig.Root(), u"local", false);
    TRASSDO(spLocal, return E_FAIL);
    platform::Bstr bstrLocal;
    hr = spLocal->GetXml(bstrLocal.Receive());
    TRASSDO(SUCCEEDED(_ARE(hr)), return hr);

    std::u16string strPage = u"<?xml version='1.0' encoding='UTF-8'?>"
                             u"<?xml-stylesheet type='text/xsl' href='/mobile/mobile.xsl'?>\n<mobile>\n";
    strPage += Entry(u"view", kViewText);
    strPage += Entry(u"upload", kUploadText);
    strPage += bstrLocal.View();
    strPage += u"</mobile>\n";
    // Readers count on the terminating zero, which the length includes.
    std::string strBytes = platform::ToUtf8(strPage);
    strBytes += '\0';
    StoreContent(platform::Bstr::FromBytes(strBytes), platform::Bstr(kTextHead), body, head);
    return S_OK;
}
