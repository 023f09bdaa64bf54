// The object's lasting state, the host address and the cameras: its document and its file.

#include <optional>
#include <tuple>
#include <utility>
#include <vector>

#include "Common/Configuration/XmlConfigSDK/XmlConfig.h"
#include "Common/Configuration/XmlConfigSDK/XmlConfigTree.h"
#include "Common/Configuration/config/DocumentTexts.h"
#include "platform/files.h"
#include "runtime/trace/Trace.h"
#include "server/Request.h"
#include "server/UploadServer.h"

using XmlConfig::CXmlConfig;

namespace {

platform::Bstr RootTemplate() {
    return platform::Bstr(XmlConfig::kRootTemplate);
}

// Gives null where there is no common folder; nothing can be read or written then. The host makes the folders
// below it and takes care of a damaged file.
platform::Bstr GetSettingsPath(std::u16string_view extension) {
    static const std::string strFolder = platform::KnownFolder(platform::kFolderCommonData);
    if (strFolder.empty())
        return nullptr;
    static const std::u16string strStart =
        platform::FromUtf8(strFolder) + uR"(\Norvane\Tessaron\Servers\Morrowstream.)";
    return platform::Bstr(std::u16string(strStart).append(extension));
}

} // namespace

// A copy of the settings, for a set that has to be taken back.
struct CUploadServer::SSettings {
    std::u16string strHost;
    CamTable oCams;
    // Of each camera, in table order. Its name never changes.
    std::vector<std::pair<platform::Bstr, platform::Bstr>> aTypesAndPasswords;
};

CUploadServer::SSettings CUploadServer::CopySettings() const {
    SSettings oCopy{m_strHost, m_oCams, {}};
    oCopy.aTypesAndPasswords.reserve(m_oCams.size());
    for (const auto& [name, spCam] : m_oCams)
        oCopy.aTypesAndPasswords.emplace_back(spCam->m_bstrType, spCam->m_bstrPassword);
    return oCopy;
}

void CUploadServer::Restore(SSettings& oSettings) noexcept {
    m_strHost.swap(oSettings.strHost);
    m_oCams.swap(oSettings.oCams);
    auto it = oSettings.aTypesAndPasswords.begin();
    for (const auto& [name, spCam] : m_oCams)
        std::tie(spCam->m_bstrType, spCam->m_bstrPassword) = std::move(*it++);
}

// Restores what was there before a set that broke off, with the same camera objects, and brings it to what
// the file holds. Where the file cannot be taken over, what was there before stays.
void CUploadServer::TakeBack(SSettings& oBefore) noexcept {
    Restore(oBefore);
    std::optional<SSettings> oRestored;
    const HRESULT hr = StatusOf([&] {
        oRestored = CopySettings();
        return Load();
    });
    if (FAILED(hr) && oRestored)
        Restore(*oRestored);
}

// Exchanges document and objects without XmlClass, which tells a subscriber and closes connections: there
// are none when the object is made, and TakeBack works inside XmlClass. A file that ends the exchange by an
// exception leaves what was read up to there.
HRESULT CUploadServer::Load() {
    const platform::SectionGuard guard(m_oLock);
    CXmlConfig oXmlConfig(nullptr, RootTemplate());
    const HRESULT hr = oXmlConfig.Load(GetSettingsPath(u"xml"), RootTemplate());
    TRASSDO(SUCCEEDED(hr), return hr);
    BindSettings(oXmlConfig.Root(), false);
    return S_OK;
}

// Exhausted memory is a failure like that of a full disk: the change stays in memory.
HRESULT CUploadServer::Save() {
    const platform::SectionGuard guard(m_oLock);
    const HRESULT hr = StatusOf([&] {
        CXmlConfig oXmlConfig(nullptr, RootTemplate());
        XmlClass(oXmlConfig, true);
        return oXmlConfig.Save(GetSettingsPath(u"xml"));
    });
    TRASSDO(SUCCEEDED(hr), {});
    return hr;
}

// A step of the binding that fails by its status shows only in what the objects hold afterwards. One that
// throws is taken back and thrown on. In every case a subscriber that heard cameras go hears of those that
// are there then.
HRESULT CUploadServer::XmlClass(CXmlConfig& oXmlConfig, bool bStore) {
    const platform::SectionGuard guard(m_oLock);
    if (bStore) {
        (void)oXmlConfig.Load(nullptr, RootTemplate());
        BindSettings(oXmlConfig.Root(), true);
        return S_OK;
    }
    // The sink may unsubscribe from inside its call.
    if (const platform::ComPtr<IVideoSourceSink> spSink = m_spVideoSourceSink)
        ForEachName([&](BSTR name) { spSink->OnCamRemoved(name); });
    CamTable oHad;
    std::optional<SSettings> oBefore;
    const HRESULT hr = StatusOf([&] {
        oHad = m_oCams;
        oBefore = CopySettings();
        BindSettings(oXmlConfig.Root(), false);
        return S_OK;
    });
    if (FAILED(hr) && oBefore)
        TakeBack(*oBefore);
    // The loop's own reference would otherwise keep a camera that is gone, and its connection, alive.
    for (const auto& [name, spCam] : oHad) {
        const auto it = m_oCams.find(name);
        if (it == m_oCams.end() || it->second.Get() != spCam.Get())
            spCam->CloseConnection();
    }
    if (const platform::ComPtr<IVideoSourceSink> spSink = m_spVideoSourceSink)
        ForEachName([&](BSTR name) { spSink->OnCamAdded(name); });
    if (FAILED(hr))
        AtlThrow(hr);
    return S_OK;
}

void CUploadServer::BindSettings(IConfigElement* pRoot, bool bStore) {
    platform::Bstr bstrHost(m_strHost);
    platform::Bstr bstrHostLabel(u"//local/@host");
    platform::Bstr bstrCamsLabel(u"//local/@cams");
    platform::Bstr bstrAddCamLabel(u"//local/@addcam");
    platform::Bstr bstrKeyXPath(u"Name/text()");
    platform::Bstr bstrAdd(u"../cams");
    const CCam::CSchema oSchema; // a load stores the cameras as well, to compare them

    const CXmlConfigTree oTree(pRoot, bStore);
    WriteLocalStrings(oTree);
    oTree.Bind({u"host", bstrHost}).Attr({u"displayname", &bstrHostLabel}).End();
    // Before the cameras, which may be many or fail.
    m_strHost = bstrHost.View();
    CTag oCams(u"cams", m_oCams);
    oCams.aAttributes = {{u"KeyXPath", &bstrKeyXPath}};
    oTree.Bind(oCams).Attr({u"displayname", &bstrCamsLabel}).End();
    const CXmlConfigTree oAddCam = oTree.Descend({u"addcam"}).Attr({u"add", &bstrAdd});
    const CXmlConfigTree oItem = oAddCam.Descend({u"item"});
    // Only a store has use for the schema: a load would put it into a document that is about to be dropped.
    if (oItem.Element() != nullptr && bStore)
        CCam::XmlClass(oItem);
    oItem.End().Attr({u"displayname", &bstrAddCamLabel}).End();
}

HRESULT CUploadServer::GetSetConfig(bool bSet, BSTR* body, BSTR* head) {
    CXmlConfig oXmlConfig(nullptr, RootTemplate());
    HRESULT hr = S_OK;
    if (bSet) {
        CHTTPHeader oHTTPHeader;
        // Whether the head is whole does not matter, only what it says of the content.
        (void)oHTTPHeader.Parse(platform::ToNarrow(platform::ViewOf(*head), platform::kCodePageThread));
        TRASSDO(oHTTPHeader.GetParam("content-type")=="text/xml", return E_UNEXPECTED);
        // A text that is no document leaves the root template, which changes nothing; its status goes back
        // with the settings as they stand.
        hr = oXmlConfig.Load(nullptr, platform::Bstr::CopyOf(*body));
        XmlClass(oXmlConfig, false); // what throws ends the set here, and nothing is saved
        (void)Save();                // reported there; the change stays in memory
    }
    XmlClass(oXmlConfig, true);
    platform::Bstr bstrXml = oXmlConfig.GetXml();
    if (bstrXml.IsNull())
        return E_FAIL;
    StoreContent(std::move(bstrXml), platform::Bstr(kTextHead), body, head);
    return hr;
}
